#include "tamlogctl/commands/shared_options.h"
#include "tamlogctl/commands/verbs.h"
#include "tamlogctl/server/filter.h"

namespace TamLogCtl {

namespace {

using Options = std::shared_ptr<FilterOptions>;

constexpr const char* kFilterFooter =
    R"(A filter matches a source by its beginning, without regard to case, and both ways: 'Camera' matches
'camera2' and 'Cam'. While there are include filters, exclude filters are ignored.

Examples:
  tamlogctl filter                            what is kept, and the filters, numbered
  tamlogctl filter add -x Heartbeat           from now on drops messages of Heartbeat
  tamlogctl filter test Camera 2              would the server keep such a message?)";

constexpr const char* kListFooter = R"(Examples:
  tamlogctl filter list                       the rule, and the filters, numbered
  tamlogctl filter list -o tsv > filters.txt  to be read by: filter set filters.txt
  tamlogctl filter list -o json               for programs)";

constexpr const char* kAddFooter =
    R"(A filter that is already in the list is not added again. A filter with an empty text matches every source; it is
rejected without --allow-empty, because it usually comes from an unset shell variable.

Examples:
  tamlogctl filter add -i Camera              keep only what is included: Camera
  tamlogctl filter add -x Heartbeat -x Poll   drop these two
  tamlogctl filter add -i Laser -i Stage      keep these as well)";

constexpr const char* kRemoveFooter =
    R"(The server has no request to remove one filter: all are cleared and the others added again. Messages that
arrive in between are judged by a partial list.

Examples:
  tamlogctl filter remove 3                   the third of the list
  tamlogctl filter remove -x Heartbeat        by kind and text, exactly
  tamlogctl filter remove 1 2 -i Laser        several at once)";

constexpr const char* kClearFooter = R"(Examples:
  tamlogctl filter clear                      every source is kept
  tamlogctl filter list -o tsv > filters.txt && tamlogctl filter clear
                                              temporarily; afterwards: filter set filters.txt
  tamlogctl filter clear && tamlogctl filter add -i Camera
                                              Camera alone)";

constexpr const char* kSetFooter =
    R"(Reads what `filter list -o tsv` or `filter list -o json` prints. A filter that
occurs twice is stored once. One with an empty text, which matches every source, is rejected without --allow-empty.

Examples:
  tamlogctl filter set filters.txt            replaces the present list by this one
  tamlogctl filter list -o json | tamlogctl filter set -
                                              the same list again
  tamlogctl filter set - < nul                no filters)";

constexpr const char* kTestFooter = R"(Exit code 0 when the message would be kept, 1 when it would be dropped.

Examples:
  tamlogctl filter test Camera                for each type
  tamlogctl filter test Camera 2              for type 2
  tamlogctl filter test Camera 2 && tamlogctl send -s Camera -t 2 "on")";

Verb Make(const char* name, const char* purpose, const char* footer, const Options& options,
          int (*run)(const FilterOptions&), std::vector<Option> own) {
  Verb verb = MakeVerb(name, purpose, footer, options, run);
  verb.Add(std::move(own));
  verb.Add(OptionsOfAll(*options));
  return verb;
}

Option EntryOption(const char* names, const Options& options, bool include, const char* purpose) {
  const auto take = [to = options.get(), include](const std::string& name) {
    to->entries.push_back({name, include});
    return std::string();
  };
  return Values(names, "NAME", take, purpose).MayBeEmpty();
}

Verb List() {
  const auto options = std::make_shared<FilterOptions>();
  return Make("list", "Show the effective rule and the filters", kListFooter, options, ListFilters,
              {Choice("-o,--output", {"text", "tsv", "json"}, options->format, "Format: text, tsv or json")});
}

Option AllowEmptyOption(const Options& options) {
  return Flag("--allow-empty", options->allowEmpty,
              "Also a filter with an empty text, which matches every source");
}

Verb AddVerb() {
  const auto options = std::make_shared<FilterOptions>();
  Verb verb = Make("add", "Add filters", kAddFooter, options, AddFilters,
                   {EntryOption("-i,--include", options, true, "An include filter (repeatable)"),
                    EntryOption("-x,--exclude", options, false, "An exclude filter (repeatable)"),
                    AllowEmptyOption(options)});
  verb.check = [options](const Given&) {
    return std::string(options->entries.empty() ? "filter add: name a source with -i or -x" : "");
  };
  return verb;
}

Verb Remove() {
  const auto options = std::make_shared<FilterOptions>();
  const auto number = [to = options.get()](std::uint64_t value) {
    to->numbers.push_back(static_cast<std::uint32_t>(value));
  };
  Verb verb = Make("remove", "Remove filters, by number or text", kRemoveFooter, options, RemoveFilters,
                   {Operands("NUMBER", Number(0, 0xFFFFFFFFU, number), "As `filter list` numbers them"),
                    EntryOption("-i,--include", options, true, "An include filter (repeatable)"),
                    EntryOption("-x,--exclude", options, false, "An exclude filter (repeatable)")});
  verb.check = [options](const Given&) {
    const bool none = options->entries.empty() && options->numbers.empty();
    return std::string(none ? "filter remove: name a filter by its number, or with -i or -x" : "");
  };
  return verb;
}

Verb Clear() {
  return Make("clear", "Remove all filters", kClearFooter, std::make_shared<FilterOptions>(), ClearFilters,
              {});
}

Verb Set() {
  const auto options = std::make_shared<FilterOptions>();
  return Make("set", "Replace all filters by those of a file", kSetFooter, options, SetFilters,
              {Operand("FILE", Text(options->file), "The file to read; - is standard input").Required(),
               AllowEmptyOption(options)});
}

Verb Test() {
  const auto options = std::make_shared<FilterOptions>();
  const auto type = [to = options.get()](std::uint64_t value) {
    to->type = static_cast<std::uint32_t>(value);
    to->typeGiven = true;
  };
  return Make("test", "Show whether a message would be kept, and the rule that decides", kTestFooter, options,
              TestFilters,
              {Operand("SOURCE", Text(options->source), "The message's source").Required().MayBeEmpty(),
               Operand("TYPE", Number(0, 3, type), "The message's type, 0 to 3 (each)")});
}

}  // namespace

Verb FilterVerb() {
  Verb filter;
  filter.name = "filter";
  filter.purpose = "Show and change which sources the server keeps";
  filter.footer = kFilterFooter;
  filter.verbs = {List(), AddVerb(), Remove(), Clear(), Set(), Test()};
  filter.alone = "list";
  return filter;
}

}  // namespace TamLogCtl
