#include "tamlogctl/commands/completion.h"

namespace TamLogCtl {

namespace {

// Bash takes --output=js and 10:00 for several words; they are put together again where nothing is between
// them. What it replaces begins after the last = or :, so the words that it is given begin there, too.
constexpr const char* kBash =
    R"(# bash completion for tamlogctl; load it with: source <(tamlogctl completion bash)
_tamlogctl() {
  local program=${COMP_WORDS[0]/#\~/$HOME} rest=${COMP_LINE:0:COMP_POINT} line word current
  local -a words=() typed=()
  COMPREPLY=()
  rest=${rest#*"${COMP_WORDS[0]}"}
  local index
  for ((index = 1; index <= COMP_CWORD; ++index)); do
    word=${COMP_WORDS[index]}
    if [[ $rest == [[:space:]]* || ${#words[@]} -eq 0 ]]; then
      words+=("$word")
    else
      words[-1]+=$word
    fi
    rest=${rest#"${rest%%[![:space:]]*}"}
    rest=${rest#"$word"}
  done
  ((${#words[@]} > 0)) || words=('')
  current=${words[-1]}
  local breaks='' kept='' quote=''
  if [[ $COMP_WORDBREAKS == *=* ]]; then breaks+='='; fi
  if [[ $COMP_WORDBREAKS == *:* ]]; then breaks+=':'; fi
  if [[ -n $breaks && $current == *[$breaks]* && $current != [\'\"]* ]]; then
    kept=${current%"${current##*[$breaks]}"}
  fi
  for word in "${words[@]}"; do
    quote=${word:0:1}
    case $quote in
      \'|\") word=${word:1}; word=${word%"$quote"} ;;
      *) quote=''; word=${word//\\/} ;;
    esac
    typed+=("=$word")
  done
  while IFS= read -r line; do
    word=${line:1}
    if [[ $line == /* ]]; then
      compopt -o filenames 2>/dev/null
      current=${typed[-1]:1}
      while IFS= read -r line; do
        line=$word$line
        COMPREPLY+=("${line#"$kept"}")
      done < <(compgen -f -- "${current#"$word"}")
      continue
    fi
    if [[ $word == *= ]]; then compopt -o nospace 2>/dev/null; fi
    if [[ -z $quote ]]; then printf -v word %q "$word"; fi
    COMPREPLY+=("${word#"$kept"}")
  done < <("$program" __complete "${typed[@]}" 2>/dev/null)
}
complete -F _tamlogctl tamlogctl tamlogctl.exe
)";

constexpr const char* kZsh = R"(#compdef tamlogctl tamlogctl.exe
# zsh completion for tamlogctl; load it with: source <(tamlogctl completion zsh)
_tamlogctl() {
  local program=${words[1]/#\~/$HOME} line
  local -a typed plain open
  typed=("${(@)${(@Q)words[2,CURRENT]}/#/=}")
  typed[-1]=${typed[-1]/#=[\'\"]/=}  # a quote that is still open
  for line in "${(@f)$("$program" __complete "${typed[@]}" 2>/dev/null)}"; do
    case $line in
      /*)
        [[ -z ${line#/} ]] || compset -P "${(b)line#/}"
        _files
        ;;
      '='*'=') open+=("${line#=}") ;;
      '='*) plain+=("${line#=}") ;;
    esac
  done
  compadd -S '' -a open
  compadd -a plain
}
compdef _tamlogctl tamlogctl tamlogctl.exe
)";

constexpr const char* kPowerShell = R"(# PowerShell completion for tamlogctl; load it with:
#   tamlogctl completion powershell | Out-String | Invoke-Expression
Register-ArgumentCompleter -Native -CommandName tamlogctl, tamlogctl.exe -ScriptBlock {
  param($wordToComplete, $commandAst, $cursorPosition)
  $typed = @($commandAst.CommandElements | Select-Object -Skip 1 |
    Where-Object { $_.Extent.EndOffset -lt $cursorPosition } |
    ForEach-Object { if ($null -ne $_.Value) { '=' + $_.Value } else { '=' + $_.ToString() } })
  $current = $wordToComplete.Trim("'", '"')
  $program = $commandAst.GetCommandName()
  foreach ($line in @(& $program '__complete' @typed ('=' + $current) 2>$null)) {
    if (-not $line.StartsWith('=')) { continue }
    $word = $line.Substring(1)
    $text = $word
    if ($word -match '[\s,;''"(){}$@#&|<>]') { $text = "'" + $word.Replace("'", "''") + "'" }
    [System.Management.Automation.CompletionResult]::new($text, $word, 'ParameterValue', $word)
  }
}
)";

}  // namespace

std::string CompletionScript(Shell shell) {
  switch (shell) {
    case Shell::PowerShell:
      return kPowerShell;
    case Shell::Bash:
      return kBash;
    case Shell::Zsh:
      return kZsh;
  }
  return "";
}

}  // namespace TamLogCtl
