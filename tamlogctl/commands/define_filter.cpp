#include <CLI/CLI.hpp>
#include <memory>

#include "tamlogctl/base/choice_option.h"
#include "tamlogctl/commands/command_line.h"
#include "tamlogctl/server/filter.h"

namespace TamLogCtl {

namespace {

using Options = std::shared_ptr<FilterOptions>;

constexpr const char* kFilterFooter =
    R"(A filter matches a source by its beginning, without regard to case, and both ways: 'Camera' matches
'camera2' and 'Cam'. While there are include filters, exclude filters are not looked at.

Examples:
  tamlogctl filter list                       what is kept, and the filters, numbered
  tamlogctl filter add -x Heartbeat           from now on drops what Heartbeat says
  tamlogctl filter test Camera 2              would the server keep such a message?)";

constexpr const char* kListFooter = R"(Examples:
  tamlogctl filter list                       the rule, and the filters, numbered
  tamlogctl filter list -o tsv > filters.txt  to be read by: filter set filters.txt
  tamlogctl filter list -o json               for programs)";

constexpr const char* kAddFooter = R"(Examples:
  tamlogctl filter add -i Camera              keep only what is included: Camera
  tamlogctl filter add -x Heartbeat -x Poll   drop these two
  tamlogctl filter add -i Laser -i Stage      keep these as well)";

constexpr const char* kRemoveFooter =
    R"(The server has no request to remove one filter: all are cleared and the others added again. Messages that
arrive in between meet a partial list.

Examples:
  tamlogctl filter remove 3                   the third of the list
  tamlogctl filter remove -x Heartbeat        by kind and text, exactly
  tamlogctl filter remove 1 2 -i Laser        several at once)";

constexpr const char* kClearFooter = R"(Examples:
  tamlogctl filter clear                      every source is kept
  tamlogctl filter list -o tsv > filters.txt && tamlogctl filter clear
                                              for a while; afterwards: filter set filters.txt
  tamlogctl filter clear && tamlogctl filter add -i Camera
                                              Camera alone)";

constexpr const char* kSetFooter = R"(Reads what `filter list -o tsv` or `filter list -o json` prints.

Examples:
  tamlogctl filter set filters.txt            puts this list in the place of the present one
  tamlogctl filter list -o json | tamlogctl filter set -
                                              the same list again
  tamlogctl filter set - < nul                no filters)";

constexpr const char* kTestFooter = R"(Exit code 0 when the message would be kept, 1 when it would be dropped.

Examples:
  tamlogctl filter test Camera                for each type
  tamlogctl filter test Camera 2              for type 2
  tamlogctl filter test Camera 2 && tamlogctl send -s Camera -t 2 "on")";

CLI::App* Define(CLI::App& parent, const char* name, const char* purpose, const char* footer,
                 const Options& options, int (*run)(const FilterOptions&), Action& chosen) {
  CLI::App* verb = parent.add_subcommand(name, purpose);
  verb->footer(footer);
  DefineCommonOptions(*verb, *options);
  verb->callback([options, run, &chosen] { chosen = [options, run] { return run(*options); }; });
  return verb;
}

void DefineEntries(CLI::App& verb, const Options& options) {
  const auto add = [options](bool include) {
    return [options, include](const std::vector<std::string>& names) {
      for (const std::string& name : names) options->entries.push_back({name, include});
    };
  };
  verb.add_option_function<std::vector<std::string>>("-i,--include", add(true),
                                                     "An include filter (repeatable)")
      ->allow_extra_args(false)
      ->option_text("NAME");
  verb.add_option_function<std::vector<std::string>>("-x,--exclude", add(false),
                                                     "An exclude filter (repeatable)")
      ->allow_extra_args(false)
      ->option_text("NAME");
}

void DefineList(CLI::App& parent, Action& chosen) {
  const auto options = std::make_shared<FilterOptions>();
  CLI::App* verb = Define(parent, "list", "Show the effective rule and the filters", kListFooter, options,
                          ListFilters, chosen);
  DefineChoice(*verb, "-o,--output", options->format, "Format: text, tsv or json",
               {{"text", ListFormat::Text}, {"tsv", ListFormat::Tsv}, {"json", ListFormat::Json}});
}

void DefineAdd(CLI::App& parent, Action& chosen) {
  const auto options = std::make_shared<FilterOptions>();
  CLI::App* verb = Define(parent, "add", "Add filters", kAddFooter, options, AddFilters, chosen);
  DefineEntries(*verb, options);
  verb->parse_complete_callback([options] {
    if (options->entries.empty()) throw CLI::ValidationError("filter add", "name one with -i or -x");
  });
}

void DefineRemove(CLI::App& parent, Action& chosen) {
  const auto options = std::make_shared<FilterOptions>();
  CLI::App* verb = Define(parent, "remove", "Remove filters, by number or text", kRemoveFooter, options,
                          RemoveFilters, chosen);
  verb->add_option("NUMBER", options->numbers, "As `filter list` numbers them");
  DefineEntries(*verb, options);
  verb->parse_complete_callback([options] {
    if (options->entries.empty() && options->numbers.empty()) {
      throw CLI::ValidationError("filter remove", "name one by its number, or with -i or -x");
    }
  });
}

void DefineTest(CLI::App& parent, Action& chosen) {
  const auto options = std::make_shared<FilterOptions>();
  CLI::App* verb = Define(parent, "test", "Say whether a message would be kept, and which rule decides",
                          kTestFooter, options, TestFilters, chosen);
  verb->add_option("SOURCE", options->source, "The message's source")->required();
  verb->add_option_function<std::uint32_t>(
          "TYPE",
          [options](const std::uint32_t& type) {
            options->type = type;
            options->typeGiven = true;
          },
          "The message's type, 0 to 3 (each)")
      ->check(CLI::Range(0, 3));
}

}  // namespace

void DefineFilterVerbs(CLI::App& app, Action& chosen) {
  CLI::App* filter = app.add_subcommand("filter", "Show and change which sources the server keeps");
  filter->footer(kFilterFooter);
  filter->require_subcommand(1);
  DefineList(*filter, chosen);
  DefineAdd(*filter, chosen);
  DefineRemove(*filter, chosen);
  Define(*filter, "clear", "Remove all filters", kClearFooter, std::make_shared<FilterOptions>(),
         ClearFilters, chosen);
  const auto options = std::make_shared<FilterOptions>();
  CLI::App* set = Define(*filter, "set", "Replace all filters by those of a file", kSetFooter, options,
                         SetFilters, chosen);
  set->add_option("FILE", options->file, "The file to read; - is standard input")->required();
  DefineTest(*filter, chosen);
}

}  // namespace TamLogCtl
