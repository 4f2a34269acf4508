#include "tamlogctl/commands/completer.h"

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include "client/file/file_path.h"
#include "client/format/message_fields.h"
#include "client/message/text_encoding.h"
#include "tamlogctl/select/source_names.h"

namespace TamLogCtl {

namespace {

using WordList = std::vector<std::string>;

WordList SplitList(std::string_view list, std::string_view separator) {
  WordList words;
  while (!list.empty()) {
    const std::size_t end = std::min(list.find(separator), list.size());
    words.emplace_back(list.substr(0, end));
    list.remove_prefix(std::min(list.size(), end + separator.size()));
  }
  return words;
}

// The words of "N|all" that are typed literally: "all"; of "template=TEXT" all but the text.
WordList ChoicesOf(const Option& option) {
  WordList choices;
  for (const std::string& word : SplitList(option.value, "|")) {
    if (std::none_of(word.begin(), word.end(), [](char letter) { return letter >= 'a' && letter <= 'z'; }))
      continue;
    choices.push_back(word.substr(0, std::min(word.find('='), word.size() - 1) + 1));
  }
  return choices;
}

// What was typed, taken apart as the parser does it.
struct Line {
  const Verb* verb = nullptr;
  const Option* pending = nullptr;  // the current word is its value
  std::size_t operands = 0;         // that were typed
  bool onlyOperands = false;        // after --
  WordList files;                   // that were named, whose sources are wanted
  WordList given;                   // names of options
};

const Option* FindOption(const Verb& verb, const std::string& name) {
  const auto found = std::find_if(verb.options.begin(), verb.options.end(), [&name](const Option& option) {
    return std::find(option.names.begin(), option.names.end(), name) != option.names.end();
  });
  return found == verb.options.end() ? nullptr : &*found;
}

const Verb* FindVerb(const Verb& verb, const std::string& name) {
  const auto found = std::find_if(verb.verbs.begin(), verb.verbs.end(),
                                  [&name](const Verb& child) { return child.name == name; });
  return found == verb.verbs.end() ? nullptr : &*found;
}

// The verb that runs when none is named.
const Verb& VerbAlone(const Verb& group, const Verb& program) {
  const Verb* const alone = FindVerb(group, &group == &program ? "show" : group.alone);
  return alone == nullptr ? group : *alone;
}

bool IsFile(const Option& option) {
  const std::string& kind = option.IsOperand() ? option.operand : option.value;
  return kind == "FILE" || kind == "NEW" || kind == "NEWFILE" || kind == "TARGET" || kind == "HOST=FILE";
}

const Option* OperandAt(const Verb& verb, std::size_t index) {
  for (const Option& option : verb.options) {
    if (!option.IsOperand()) continue;
    if (index == 0 || option.repeatable) return &option;
    --index;
  }
  return nullptr;
}

// Notes the log file that an option's value names.
void TakeFile(const Option& option, const std::string& value, Line& line) {
  if (option.Name() == "--file") line.files.push_back(value);
  if (option.value == "HOST=FILE") line.files.push_back(value.substr(value.find('=') + 1));
}

void TakeOption(const std::string& word, Line& line) {
  const std::size_t sign = word.find('=');
  const Option* option = FindOption(*line.verb, word.substr(0, sign));
  // Short ones may be bundled, "-rn": the last one decides.
  if (option == nullptr && !word.starts_with("--")) option = FindOption(*line.verb, {'-', word.back()});
  if (option == nullptr) return;
  line.given.insert(line.given.end(), option->names.begin(), option->names.end());
  if (!option->flag && option->take && sign == std::string::npos) line.pending = option;
  if (sign != std::string::npos) TakeFile(*option, word.substr(sign + 1), line);
}

void TakeWord(const std::string& word, const Verb& program, Line& line) {
  if (line.pending != nullptr) {
    TakeFile(*line.pending, word, line);
    line.pending = nullptr;
    return;
  }
  if (word == "--") {
    line.onlyOperands = true;
  } else if (!line.onlyOperands && word.size() > 1 && word.front() == '-') {
    if (!line.verb->verbs.empty()) line.verb = &VerbAlone(*line.verb, program);
    TakeOption(word, line);
  } else if (const Verb* const child = FindVerb(*line.verb, word); child != nullptr) {
    line.verb = child;
  } else {
    const Option* const operand = OperandAt(*line.verb, line.operands++);
    if (operand != nullptr && IsFile(*operand)) line.files.push_back(word);
  }
}

// The words that are offered for a value which is a list: what was typed up to the last comma, and each word
// after it.
WordList AfterCommas(const std::string& current, const WordList& words) {
  const std::size_t comma = current.rfind(',');
  const std::string before = comma == std::string::npos ? "" : current.substr(0, comma + 1);
  WordList lists;
  for (const std::string& word : words) lists.push_back(before + word);
  return lists;
}

// Names of types: 3=err.
WordList TypeNameWords(const std::string& current) {
  const std::string last = current.substr(current.rfind(',') + 1);
  WordList words;
  for (const char* const type : {"0=", "1=", "2=", "3="}) {
    if (!last.starts_with(type)) {
      words.emplace_back(type);
      continue;
    }
    for (const char* const name : {"debug", "info", "notice", "warn", "err", "crit"})
      words.push_back(std::string(type) + name);
  }
  return AfterCommas(current, words);
}

// Reads ordinary files only: standard input and pipes have no contents for the completion.
WordList SourcesOf(const WordList& files) {
  WordList ordinary;
  for (const std::string& file : files) {
    std::error_code ignored;
    if (std::filesystem::is_regular_file(TamLogClient::PathOf(file), ignored)) ordinary.push_back(file);
  }
  return files.empty() || !ordinary.empty() ? SourceNames(ordinary) : WordList();
}

WordList ValuesOf(const Option& option, const std::string& current, const Line& line) {
  const std::string& kind = option.IsOperand() && option.value.empty() ? option.operand : option.value;
  if (kind == "NAME[:TYPES]" || kind == "NAME" || kind == "SOURCE") return SourcesOf(line.files);
  if (kind == "TIME")
    return {"now", "today", "yesterday", "tomorrow",        "-5m",       "-15m",
            "-1h", "-1d",   "-1w",       "yesterday 12:00", "1 hour ago"};
  if (kind == "A,B") return AfterCommas(current, SplitList(TamLogClient::kFieldNames, ", "));
  if (kind == "0=NAME,...") return TypeNameWords(current);
  if (kind == "ENCODING") return SplitList(TamLogClient::kEncodingNames, ", ");
  if (kind == "LIST") return AfterCommas(current, {"0", "1", "2", "3"});
  if (kind == "SEVERITY") return {"emerg", "alert", "crit", "err", "warning", "notice", "info", "debug"};
  if (kind == "TYPE") return {"0", "1", "2", "3"};
  return ChoicesOf(option);
}

// Completes a value that stands after `prefix` in the current word.
Completions CompleteValue(const Option& option, const std::string& prefix, const std::string& current,
                          const Line& line) {
  Completions found;
  found.prefix = prefix;
  if (option.value == "HOST=FILE") {
    const std::size_t sign = current.find('=');
    found.files = sign != std::string::npos;
    if (found.files) found.prefix += current.substr(0, sign + 1);
    return found;
  }
  found.files = IsFile(option);
  for (const std::string& word : ValuesOf(option, current, line)) found.words.push_back(prefix + word);
  return found;
}

// The options that can still be given.
void AddOptions(const Verb& verb, const Line& line, WordList& words) {
  for (const Option& option : verb.options) {
    if (option.IsOperand()) continue;
    for (const std::string& name : option.names) {
      const bool given = std::find(line.given.begin(), line.given.end(), name) != line.given.end();
      if (!given || option.repeatable) words.push_back(name);
    }
  }
}

Completions CompleteWord(const Verb& program, const Line& line, const std::string& current) {
  if (line.pending != nullptr) return CompleteValue(*line.pending, "", current, line);
  if (!line.onlyOperands && current.starts_with('-')) {
    const Verb& verb = line.verb->verbs.empty() ? *line.verb : VerbAlone(*line.verb, program);
    const std::size_t sign = current.find('=');
    if (sign != std::string::npos) {
      const Option* const option = FindOption(verb, current.substr(0, sign));
      if (option == nullptr || option->flag) return {};
      return CompleteValue(*option, current.substr(0, sign + 1), current.substr(sign + 1), line);
    }
    Completions found;
    AddOptions(verb, line, found.words);
    if (line.verb == &program) found.words.emplace_back("--version");
    return found;
  }
  Completions found;
  const Option* const operand = OperandAt(*line.verb, line.operands);
  if (operand != nullptr) found = CompleteValue(*operand, "", current, line);
  for (const Verb& child : line.verb->verbs) found.words.push_back(child.name);
  if (operand == nullptr && line.verb->verbs.empty() && current.empty())
    AddOptions(*line.verb, line, found.words);
  return found;
}

}  // namespace

Completions Complete(const Verb& program, const WordList& typed, const std::string& current) {
  Line line;
  line.verb = &program;
  for (const std::string& word : typed) TakeWord(word, program, line);
  Completions found = CompleteWord(program, line, current);
  std::erase_if(found.words, [&current](const std::string& word) { return !word.starts_with(current); });
  return found;
}

std::string CompletionLines(const Verb& program, const WordList& arguments) {
  WordList typed;
  for (const std::string& argument : arguments) typed.push_back(argument.substr(argument.empty() ? 0 : 1));
  std::string current;
  if (!typed.empty()) current = std::move(typed.back());
  if (!typed.empty()) typed.pop_back();
  const Completions found = Complete(program, typed, current);
  std::string out;
  if (found.files) out += "/" + found.prefix + "\n";
  for (const std::string& word : found.words) out += "=" + word + "\n";
  return out;
}

}  // namespace TamLogCtl
