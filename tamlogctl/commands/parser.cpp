#include "tamlogctl/commands/parser.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string_view>
#include <utility>

namespace TamLogCtl {

namespace {

std::string Join(const std::vector<std::string>& words, const char* between) {
  std::string list;
  for (const std::string& word : words) list += (list.empty() ? "" : between) + word;
  return list;
}

void TakeValue(const Option& option, const std::string& value) {
  if (value.empty() && !option.mayBeEmpty)
    throw CLI::ValidationError(option.Name() + ": the value is empty; give one, or leave the option out");
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
  defined->option_text(option.value);
  defined->required(option.required);
  if (option.repeatable) {
    defined->expected(CLI::detail::expected_max_vector_size);
    defined->allow_extra_args(option.IsOperand());  // of "--file a b" only the first is a value
  }
}

void DefineVerb(const Verb& verb, CLI::App& app) {
  app.footer(verb.footer);
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
    const auto isOption = [](const std::string& word) { return word.size() > 1 && word.front() == '-'; };
    const auto option = std::find_if(words.begin(), words.end(), isOption);
    if (option != words.end()) return "unknown option '" + *option + "'";
    if (!words.empty()) return "unexpected argument '" + words.front() + "'";
  }
  if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr && !verb.verbs.empty()) {
    std::vector<std::string> verbs;
    for (const Verb& child : verb.verbs) verbs.push_back(child.name);
    return verb.name + ": needs a verb: " + Join(verbs, ", ");
  }
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
    if (text.ends_with(" missing")) return name + ": needs a value";
    if (text.find(": At Most ") != std::string::npos) return name + ": given more than once";
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
  CLI::App root(program.purpose, program.name);
  root.allow_windows_style_options(false);  // "/dev/null" is no option; verbs inherit this
  DefineVerb(program, root);
  std::reverse(arguments.begin(), arguments.end());  // the order that the library expects

  Parsed parsed;
  const CLI::App* app = &root;
  parsed.verb = &program;
  parsed.path = program.name;
  std::string before;  // the words before the innermost verb's name
  const auto findInnermost = [&] {
    while (!app->get_subcommands().empty()) {
      app = app->get_subcommands().front();
      const auto hasName = [app](const Verb& verb) { return verb.name == app->get_name(); };
      parsed.verb = &*std::find_if(parsed.verb->verbs.begin(), parsed.verb->verbs.end(), hasName);
      before = parsed.path;
      parsed.path += " " + parsed.verb->name;
    }
  };
  try {
    root.parse(arguments);
    findInnermost();
    parsed.problem = Finish(*parsed.verb, *app);
  } catch (const CLI::CallForHelp&) {
    findInnermost();
    parsed.help = app->help(before);
  } catch (const CLI::ParseError& error) {
    findInnermost();
    parsed.problem = UsageProblem(*parsed.verb, *app, error);
  }
  return parsed;
}

}  // namespace TamLogCtl
