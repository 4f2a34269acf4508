#include "tamlogctl/commands/completion.h"

#include <algorithm>
#include <functional>
#include <string_view>
#include <vector>

namespace TamLogCtl {

namespace {

// Each verb with the words that lead to it: "", "show", "filter", "filter add".
using Visit = std::function<void(const std::string& path, const Verb& verb)>;

void ForEach(const Verb& verb, const std::string& path, const Visit& visit) {
  visit(path, verb);
  for (const Verb& child : verb.verbs) {
    ForEach(child, path.empty() ? child.name : path + " " + child.name, visit);
  }
}

bool IsFileWord(const std::string& word) {
  return word == "FILE" || word == "NEW" || word == "NEWFILE";
}

bool TakesFile(const Option& option) {
  return IsFileWord(option.IsOperand() ? option.operand : option.value);
}

// The words of "N|all" that are typed literally: "all"; of "template=TEXT" all but the text.
std::vector<std::string> ChoicesOf(const Option& option) {
  std::vector<std::string> choices;
  for (std::string_view text = option.value; !text.empty();) {
    const std::string_view word = text.substr(0, text.find('|'));
    text.remove_prefix(std::min(text.size(), word.size() + 1));
    if (std::none_of(word.begin(), word.end(), [](char letter) { return letter >= 'a' && letter <= 'z'; }))
      continue;
    const std::size_t sign = word.find('=');
    choices.emplace_back(sign == std::string_view::npos ? word : word.substr(0, sign + 1));
  }
  return choices;
}

std::string Join(const std::vector<std::string>& words, const char* between = " ") {
  std::string list;
  for (const std::string& word : words) list += (list.empty() ? "" : between) + word;
  return list;
}

// Returns the words that are valid where no value is expected: verbs, options, and the words of operands.
std::string WordsOf(const Verb& verb) {
  std::vector<std::string> words;
  for (const Verb& child : verb.verbs) words.push_back(child.name);
  for (const Option& option : verb.options) {
    const std::vector<std::string> typed = option.IsOperand() ? ChoicesOf(option) : option.names;
    words.insert(words.end(), typed.begin(), typed.end());
  }
  return Join(words);
}

bool HasFileOperand(const Verb& verb) {
  return std::any_of(verb.options.begin(), verb.options.end(),
                     [](const Option& option) { return option.IsOperand() && TakesFile(option); });
}

// Returns the values that are expected: "@files", the words, or "-" where the shell can offer nothing.
std::string ValueOf(const Option& option) {
  if (TakesFile(option)) return "@files";
  const std::vector<std::string> choices = ChoicesOf(option);
  return choices.empty() ? "-" : Join(choices);
}

// Returns the branches of a `case` in bash and zsh alike: sets `choices` and, after an option with a value,
// `value`.
std::string Branches(const Verb& program) {
  std::string out = "  case \"$verb\" in\n";
  ForEach(program, "", [&out](const std::string& path, const Verb& verb) {
    out += "    '" + path + "')\n      choices='" + WordsOf(verb) + "'\n";
    if (HasFileOperand(verb)) out += "      operand='@files'\n";
    std::string cases;
    for (const Option& option : verb.options) {
      if (option.IsOperand() || option.flag) continue;
      cases += "        " + Join(option.names, "|") + ") value='" + ValueOf(option) + "' ;;\n";
    }
    if (!cases.empty()) out += "      case \"$previous\" in\n" + cases + "      esac\n";
    out += "      ;;\n";
  });
  return out + "  esac\n";
}

// The words that lead to verbs, as alternatives of a pattern, to find the verb in what was typed.
std::string Paths(const Verb& program) {
  std::string out;
  ForEach(program, "", [&out](const std::string& path, const Verb& /*verb*/) {
    if (!path.empty()) out += (out.empty() ? "'" : " | '") + path + "'";
  });
  return out;
}

std::string Bash(const Verb& program) {
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

std::string Zsh(const Verb& program) {
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

std::string PowerShell(const Verb& program) {
  std::string table;
  std::string values;
  ForEach(program, "", [&](const std::string& path, const Verb& verb) {
    table += "    " + Quoted(path) + " = " + Quoted(WordsOf(verb)) + "\n";
    for (const Option& option : verb.options) {
      if (option.IsOperand() || option.flag) continue;
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

std::string MakeCompletion(Shell shell, const Verb& program) {
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
