#include "tamlogctl/commands/parser.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string_view>
#include <utility>

#include "tamlogctl/base/suggestion.h"
#include "tamlogctl/commands/help.h"

namespace TamLogCtl {

namespace {

std::string Join(const std::vector<std::string>& words, const char* between) {
  std::string list;
  for (const std::string& word : words) list += (list.empty() ? "" : between) + word;
  return list;
}

bool IsOption(const std::string& word) {
  return word.size() > 1 && word.front() == '-';
}

const Verb* ChildOf(const Verb& verb, const std::string& name) {
  const auto found = std::find_if(verb.verbs.begin(), verb.verbs.end(),
                                  [&name](const Verb& child) { return child.name == name; });
  return found == verb.verbs.end() ? nullptr : &*found;
}

std::vector<std::string> NamesOfVerbs(const Verb& verb) {
  std::vector<std::string> names;
  for (const Verb& child : verb.verbs) names.push_back(child.name);
  return names;
}

// Appends the words that lead to each verb of this name.
void FindVerbs(const Verb& verb, const std::string& path, const std::string& name,
               std::vector<std::string>& found) {
  for (const Verb& child : verb.verbs) {
    const std::string childPath = path + " " + child.name;
    if (child.name == name && std::find(found.begin(), found.end(), childPath) == found.end())
      found.push_back(childPath);
    FindVerbs(child, childPath, name, found);
  }
}

std::string DidYouMean(const std::vector<std::string>& meant) {
  return meant.empty() ? "" : "; did you mean '" + Join(meant, "' or '") + "'?";
}

// Returns what is wrong with `word`, which stands where a verb of `group` belongs.
std::string UnknownVerb(const Verb& program, const Verb& group, const std::string& path,
                        const std::string& word) {
  std::vector<std::string> meant;
  const std::string nearest = NearestWord(word, NamesOfVerbs(group));
  if (!nearest.empty()) meant.push_back(path + " " + nearest);
  FindVerbs(program, program.name, word, meant);
  const bool isFile = word.find_first_of("./\\") != std::string::npos;
  if (meant.empty() && isFile && &group == &program) meant.push_back(program.name + " show " + word);
  return (&group == &program ? "" : group.name + ": ") + "there is no verb '" + word + "'" +
         DidYouMean(meant) + (meant.empty() ? "; verbs are " : " Verbs are ") +
         Join(NamesOfVerbs(group), ", ");
}

std::string UnknownOption(const Verb& verb, const std::string& word) {
  std::vector<std::string> names;
  for (const Option& option : verb.options)
    names.insert(names.end(), option.names.begin(), option.names.end());
  const std::string nearest = NearestWord(word.substr(0, word.find('=')), names);
  return "unknown option '" + word + "'" +
         DidYouMean(nearest.empty() ? std::vector<std::string>() : std::vector{nearest});
}

void TakeValue(const Option& option, const std::string& value) {
  if (value.empty() && !option.mayBeEmpty)
    throw CLI::ValidationError(option.Name() + ": the value is empty; give one, or leave " +
                               (option.IsOperand() ? "it out" : "the option out"));
  const std::string problem = option.take(value);
  if (!problem.empty()) throw CLI::ValidationError(option.Name() + ": " + problem);
}

void Define(const Option& option, CLI::App& app) {
  std::string names = option.IsOperand() ? option.operand : Join(option.names, ",");
  if (!option.off.empty()) names.insert(names.find(option.off), "!");
  if (!option.take) {
    app.set_help_flag(names, option.purpose);
    return;
  }
  if (option.flag) {
    app.add_flag(names, option.purpose);
    return;
  }
  const auto take = [&option](const CLI::results_t& values) {
    for (const std::string& value : values) TakeValue(option, value);
    return true;
  };
  CLI::Option* const defined = app.add_option(names, take, option.purpose);
  defined->required(option.required);
  if (!option.repeatable && !option.IsOperand())
    defined->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);  // an alias may hold a default
  if (option.repeatable) {
    defined->expected(CLI::detail::expected_max_vector_size);
    defined->allow_extra_args(option.IsOperand());  // of "--file a b" only the first is a value
  }
}

void DefineVerb(const Verb& verb, CLI::App& app) {
  for (const Option& option : verb.options) Define(option, app);
  for (const Option& option : verb.options) {
    if (!option.needs.empty()) app.get_option(option.Name())->needs(app.get_option(option.needs));
    if (!option.excludes.empty()) app.get_option(option.Name())->excludes(app.get_option(option.excludes));
  }
  if (!verb.verbs.empty()) app.require_subcommand(1);
  for (const Verb& child : verb.verbs) DefineVerb(child, *app.add_subcommand(child.name, child.purpose));
}

// The library's texts name neither the value nor the correction.
std::string UsageProblem(const Verb& verb, const CLI::App& app, const CLI::ParseError& error) {
  std::string text = error.what();
  const std::string name = text.substr(0, text.find(':'));
  if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) {
    const std::vector<std::string> words = app.remaining();
    const auto option = std::find_if(words.begin(), words.end(), IsOption);
    if (option != words.end()) return UnknownOption(verb, *option);
    if (!words.empty()) return "unexpected argument '" + words.front() + "'";
  }
  if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr && !verb.verbs.empty())
    return verb.name + ": needs a verb: " + Join(NamesOfVerbs(verb), ", ");
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
    if (text.ends_with(" missing")) return name + ": needs a value";
  }
  if (dynamic_cast<const CLI::ExcludesError*>(&error) != nullptr) {
    const std::string_view excludes = " excludes ";
    text.replace(text.find(excludes), excludes.size(), ": cannot be used with ");
  }
  return text;
}

// Stores the flags, after the values of all other options; returns the problem, or an empty text.
std::string Finish(const Verb& verb, const CLI::App& app) {
  std::vector<std::string> given;
  for (const Option& option : verb.options) {
    const CLI::Option* const parsed = option.take ? app.get_option(option.Name()) : nullptr;
    if (parsed == nullptr || parsed->count() == 0) continue;
    given.push_back(option.Name());
    if (option.flag) option.take(parsed->as<bool>() ? "true" : "false");
  }
  return verb.check ? verb.check(Given(std::move(given))) : "";
}

}  // namespace

Parsed Parse(const Verb& program, std::vector<std::string> arguments) {
  Parsed parsed;
  parsed.verb = &program;
  parsed.path = program.name;
  for (const std::string& word : arguments) {
    if (parsed.verb->verbs.empty() || word.empty() || word.front() == '-') break;
    const Verb* const child = ChildOf(*parsed.verb, word);
    if (child == nullptr) {
      parsed.problem = UnknownVerb(program, *parsed.verb, parsed.path, word);
      return parsed;
    }
    parsed.verb = child;
    parsed.path += " " + word;
  }
  CLI::App root(program.purpose, program.name);
  root.allow_windows_style_options(false);  // "/dev/null" is no option; verbs inherit this
  DefineVerb(program, root);
  std::reverse(arguments.begin(), arguments.end());  // the order that the library expects
  const CLI::App* app = &root;
  const auto findInnermost = [&] {
    while (!app->get_subcommands().empty()) app = app->get_subcommands().front();
  };
  try {
    root.parse(arguments);
    findInnermost();
    parsed.problem = Finish(*parsed.verb, *app);
  } catch (const CLI::CallForHelp&) {
    parsed.help = MakeHelp(*parsed.verb, parsed.path);
  } catch (const CLI::ParseError& error) {
    findInnermost();
    parsed.problem = UsageProblem(*parsed.verb, *app, error);
  }
  return parsed;
}

}  // namespace TamLogCtl
