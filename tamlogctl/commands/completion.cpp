#include "tamlogctl/commands/completion.h"

#include <algorithm>
#include <functional>

namespace TamLogCtl {

namespace {

// Each verb with the words that lead to it: "", "show", "filter", "filter add".
using Visit = std::function<void(const std::string& path, const VerbInfo& verb)>;

void ForEach(const VerbInfo& verb, const std::string& path, const Visit& visit) {
  visit(path, verb);
  for (const VerbInfo& child : verb.verbs) {
    ForEach(child, path.empty() ? child.name : path + " " + child.name, visit);
  }
}

std::string Join(const std::vector<std::string>& words, const char* between = " ") {
  std::string list;
  for (const std::string& word : words) list += (list.empty() ? "" : between) + word;
  return list;
}

// What may stand where no value is expected: verbs, options, and the words of operands.
std::string WordsOf(const VerbInfo& verb) {
  std::vector<std::string> words;
  for (const VerbInfo& child : verb.verbs) words.push_back(child.name);
  for (const OptionInfo& option : verb.options) {
    words.insert(words.end(), option.names.begin(), option.names.end());
    if (option.names.empty()) words.insert(words.end(), option.choices.begin(), option.choices.end());
  }
  return Join(words);
}

bool HasFileOperand(const VerbInfo& verb) {
  return std::any_of(verb.options.begin(), verb.options.end(),
                     [](const OptionInfo& option) { return option.names.empty() && option.takesFile; });
}

// A value that is expected: "@files", its words, or "-" where the shell can offer nothing.
std::string ValueOf(const OptionInfo& option) {
  if (option.takesFile) return "@files";
  return option.choices.empty() ? "-" : Join(option.choices);
}

// The branches of a `case` in bash and zsh alike: sets `choices` and, behind an option with a value, `value`.
std::string Branches(const VerbInfo& program) {
  std::string out = "  case \"$verb\" in\n";
  ForEach(program, "", [&out](const std::string& path, const VerbInfo& verb) {
    out += "    '" + path + "')\n      choices='" + WordsOf(verb) + "'\n";
    if (HasFileOperand(verb)) out += "      operand='@files'\n";
    std::string cases;
    for (const OptionInfo& option : verb.options) {
      if (option.value.empty()) continue;
      cases += "        " + Join(option.names, "|") + ") value='" + ValueOf(option) + "' ;;\n";
    }
    if (!cases.empty()) out += "      case \"$previous\" in\n" + cases + "      esac\n";
    out += "      ;;\n";
  });
  return out + "  esac\n";
}

// The words that lead to verbs, as alternatives of a pattern, to find the verb in what was typed.
std::string Paths(const VerbInfo& program) {
  std::string out;
  ForEach(program, "", [&out](const std::string& path, const VerbInfo& /*verb*/) {
    if (!path.empty()) out += (out.empty() ? "'" : " | '") + path + "'";
  });
  return out;
}

std::string Bash(const VerbInfo& program) {
  return R"(# bash completion for tamlogctl; load it with: source <(tamlogctl completion bash)
_tamlogctl() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local verb='' choices='' value='' operand='' word index
  COMPREPLY=()
  for ((index = 1; index < COMP_CWORD; ++index)); do
    word="${verb:+$verb }${COMP_WORDS[index]}"
    case "$word" in
      )" +
         Paths(program) +
         R"() verb=$word ;;
    esac
  done
)" + Branches(program) +
         R"(  # Without a verb, show is meant.
  if [[ -z $verb && $previous == -* ]]; then return 0; fi
  if [[ $value == - ]]; then return 0; fi
  if [[ $value == @files || (-z $value && -n $operand && $current != -*) ]]; then
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
    compopt -o filenames 2>/dev/null
    return 0
  fi
  mapfile -t COMPREPLY < <(compgen -W "${value:-$choices}" -- "$current")
}
complete -F _tamlogctl tamlogctl tamlogctl.exe
)";
}

std::string Zsh(const VerbInfo& program) {
  return R"(#compdef tamlogctl tamlogctl.exe
# zsh completion for tamlogctl; load it with: source <(tamlogctl completion zsh)
_tamlogctl() {
  local current=${words[CURRENT]} previous=${words[CURRENT-1]}
  local verb='' choices='' value='' operand='' word index
  for ((index = 2; index < CURRENT; ++index)); do
    word="${verb:+$verb }${words[index]}"
    case "$word" in
      )" +
         Paths(program) +
         R"() verb=$word ;;
    esac
  done
)" + Branches(program) +
         R"(  if [[ $value == - ]]; then return 0; fi
  if [[ $value == @files || ( -z $value && -n $operand && $current != -* ) ]]; then
    _files
    return
  fi
  compadd -- ${=${value:-$choices}}
}
compdef _tamlogctl tamlogctl tamlogctl.exe
)";
}

std::string Quoted(const std::string& text) {
  std::string out = "'";
  for (const char letter : text) out += letter == '\'' ? std::string("''") : std::string(1, letter);
  return out + "'";
}

std::string PowerShell(const VerbInfo& program) {
  std::string table;
  std::string values;
  ForEach(program, "", [&](const std::string& path, const VerbInfo& verb) {
    table += "    " + Quoted(path) + " = " + Quoted(WordsOf(verb)) + "\n";
    for (const OptionInfo& option : verb.options) {
      if (option.value.empty()) continue;
      // Short options differ by case, so the keys are compared with regard to it.
      for (const std::string& name : option.names) {
        std::string key = path;
        key.append(" ").append(name);
        values.append("  $values[").append(Quoted(key)).append("] = ");
        values.append(Quoted(ValueOf(option))).append("\n");
      }
    }
  });
  return R"(# PowerShell completion for tamlogctl; load it with:
#   tamlogctl completion powershell | Out-String | Invoke-Expression
Register-ArgumentCompleter -Native -CommandName tamlogctl, tamlogctl.exe -ScriptBlock {
  param($wordToComplete, $commandAst, $cursorPosition)
  $verbs = @{
)" + table +
         R"(  }
  $values = New-Object 'System.Collections.Generic.Dictionary[string,string]'
)" + values +
         R"(  $typed = @($commandAst.CommandElements |
    Where-Object { $_.Extent.EndOffset -lt $cursorPosition } |
    Select-Object -Skip 1 | ForEach-Object { $_.ToString() })
  $verb = ''
  foreach ($word in $typed) {
    $longer = ($verb + ' ' + $word).Trim()
    if ($verbs.ContainsKey($longer)) { $verb = $longer }
  }
  $words = $verbs[$verb]
  if ($typed.Count -gt 0) {
    $key = $verb + ' ' + $typed[-1]
    if ($values.ContainsKey($key)) { $words = $values[$key] }
  }
  if ($words -eq '@files' -or $words -eq '-') { return }
  $words -split ' ' | Where-Object { $_ -clike "$wordToComplete*" } | ForEach-Object {
    [System.Management.Automation.CompletionResult]::new($_, $_, 'ParameterValue', $_)
  }
}
)";
}

}  // namespace

std::string MakeCompletion(Shell shell, const VerbInfo& program) {
  switch (shell) {
    case Shell::PowerShell:
      return PowerShell(program);
    case Shell::Bash:
      return Bash(program);
    case Shell::Zsh:
      return Zsh(program);
  }
  return "";
}

}  // namespace TamLogCtl
