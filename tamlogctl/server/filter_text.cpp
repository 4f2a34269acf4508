#include "tamlogctl/server/filter_text.h"

#include <algorithm>

#include "client/format/tsv_text.h"
#include "client/message/hex.h"
#include "client/message/utf8.h"
#include "tamlogctl/base/json.h"

namespace TamLogCtl {

namespace {

constexpr std::size_t kShortText = 2;

const char* KindOf(const FilterEntry& filter) {
  return filter.include ? "include" : "exclude";
}

bool HasInclude(const std::vector<FilterEntry>& filters) {
  return std::any_of(filters.begin(), filters.end(),
                     [](const FilterEntry& filter) { return filter.include; });
}

std::optional<bool> IncludeFromKind(std::string_view kind) {
  if (kind == "include") return true;
  if (kind == "exclude") return false;
  return std::nullopt;
}

std::optional<FilterEntry> FromJson(const Json& entry) {
  const std::string* const kind = entry.FindString("kind");
  const auto include = kind == nullptr ? std::nullopt : IncludeFromKind(*kind);
  if (!include) return std::nullopt;
  if (const std::string* const digits = entry.FindString("text_hex")) {
    auto text = TamLogClient::FromHex(*digits);
    if (!text) return std::nullopt;
    return FilterEntry{std::move(*text), *include};
  }
  const std::string* const text = entry.FindString("text");
  if (text == nullptr) return std::nullopt;
  return FilterEntry{*text, *include};
}

std::optional<std::vector<FilterEntry>> ParseArray(std::string_view text, std::string& problem) {
  const auto json = ParseJson(text);
  std::vector<FilterEntry> filters;
  if (!json || json->AsArray() == nullptr) {
    problem = "expected a JSON array of {\"kind\":\"include\",\"text\":\"NAME\"}";
    return std::nullopt;
  }
  for (const Json& entry : *json->AsArray()) {
    auto filter = FromJson(entry);
    if (!filter) {
      problem = "entry " + std::to_string(filters.size() + 1) +
                ": expected {\"kind\":\"include\" or \"exclude\",\"text\":\"NAME\"}";
      return std::nullopt;
    }
    filters.push_back(std::move(*filter));
  }
  return filters;
}

std::optional<FilterEntry> ParseTsv(std::string_view line) {
  const std::size_t tab = line.find('\t');
  if (tab == std::string_view::npos || line.find('\t', tab + 1) != std::string_view::npos)
    return std::nullopt;
  const auto include = IncludeFromKind(line.substr(0, tab));
  if (!include) return std::nullopt;
  // The escapes are those of messages, so the text is parsed as the text of a message.
  std::string problem;
  auto draft = TamLogClient::ParseTsvLine(
      "2026-01-01 00:00:00.000\t0\t\t" + std::string(line.substr(tab + 1)), problem);
  if (!draft) return std::nullopt;
  return FilterEntry{std::move(draft->text), *include};
}

}  // namespace

std::string FilterRuleText(const std::vector<FilterEntry>& filters) {
  if (filters.empty()) return "every source is kept";
  return HasInclude(filters) ? "only included sources are kept; exclude filters are ignored"
                             : "all sources but the excluded ones are kept";
}

std::string FilterForShow(const FilterEntry& filter) {
  std::string text;
  TamLogClient::AppendVisible(filter.text, text);
  const bool quoted = text.empty() || text.front() == ' ' || text.back() == ' ';
  return quoted ? "\"" + text + "\"" : text;
}

std::string FilterRemark(const FilterEntry& filter) {
  if (filter.text.empty()) return "empty: matches every source";
  if (filter.text.size() <= kShortText) {
    return "very short: matches every source that begins with it";
  }
  return "";
}

std::string FilterProblem(const FilterEntry& filter) {
  if (filter.text.size() > kLongestFilter) {
    return "the filter has " + std::to_string(filter.text.size()) +
           " bytes, 127 are allowed (a longer one would crash the server); shorten it, since a filter "
           "matches by its beginning";
  }
  if (filter.text.find('\0') != std::string::npos) return "a filter cannot contain a zero byte; remove it";
  return "";
}

std::vector<FilterEntry> RemoveKnown(const std::vector<FilterEntry>& present,
                                     std::vector<FilterEntry>& filters) {
  const auto letterIsSame = [](char left, char right) {
    return TamLogClient::LowerCase(left) == TamLogClient::LowerCase(right);
  };
  const auto isIn = [&letterIsSame](const std::vector<FilterEntry>& list, const FilterEntry& wanted) {
    return std::any_of(list.begin(), list.end(), [&](const FilterEntry& filter) {
      return filter.include == wanted.include &&
             std::equal(filter.text.begin(), filter.text.end(), wanted.text.begin(), wanted.text.end(),
                        letterIsSame);
    });
  };
  std::vector<FilterEntry> left;
  std::vector<FilterEntry> removed;
  for (FilterEntry& filter : filters) {
    const bool known = isIn(present, filter) || isIn(left, filter);
    (known ? removed : left).push_back(std::move(filter));
  }
  filters = std::move(left);
  return removed;
}

std::string VerdictText(const std::vector<FilterEntry>& filters, const TamLogClient::FilterVerdict& verdict,
                        std::uint32_t type) {
  using TamLogClient::FilterReason;
  const auto quoted = [&filters, &verdict] {
    std::string text = "'";
    TamLogClient::AppendVisible(filters[verdict.index].text, text);
    return text + "' (" + std::to_string(verdict.index + 1) + ")";
  };
  switch (verdict.reason) {
    case FilterReason::NoSuchType:
      return "dropped: there is no type " + std::to_string(type);
    case FilterReason::TypeOff:
      return "dropped by type: " + std::to_string(type) + " is switched off";
    case FilterReason::Included:
      return "kept by include filter " + quoted();
    case FilterReason::NotIncluded:
      return "dropped: no include filter matches";
    case FilterReason::Excluded:
      return "dropped by exclude filter " + quoted();
    case FilterReason::NothingAgainst:
      return "kept: no filter matches";
  }
  return "";
}

std::string FiltersAsText(const std::vector<FilterEntry>& filters) {
  std::string out = "rule: " + FilterRuleText(filters) + "\n";
  const bool include = HasInclude(filters);
  for (std::size_t i = 0; i < filters.size(); ++i) {
    const FilterEntry& filter = filters[i];
    const std::string number = std::to_string(i + 1);
    out +=
        std::string(number.size() < 3 ? 3 - number.size() : 0, ' ') + number + "  " + KindOf(filter) + "  ";
    out += FilterForShow(filter);
    std::string remark = FilterRemark(filter);
    if (include && !filter.include) remark = "ignored while there are include filters";
    if (!remark.empty()) out += "  (" + remark + ")";
    out += '\n';
  }
  return out;
}

std::string FiltersAsTsv(const std::vector<FilterEntry>& filters) {
  std::string out;
  for (const FilterEntry& filter : filters) {
    out.append(KindOf(filter)).append("\t");
    TamLogClient::AppendTsvText(filter.text, out);
    out += '\n';
  }
  return out;
}

std::string FiltersAsJson(const std::vector<FilterEntry>& filters) {
  JsonArray list;
  for (const FilterEntry& filter : filters) {
    JsonObject entry{{"kind", KindOf(filter)}, {"text", filter.text}};
    if (!TamLogClient::IsValidUtf8(filter.text)) {
      std::string digits;
      TamLogClient::AppendHex(filter.text, digits);
      entry.emplace_back("text_hex", std::move(digits));
    }
    list.emplace_back(std::move(entry));
  }
  return WriteJson(list, 2) + "\n";
}

std::optional<std::vector<FilterEntry>> ParseFilters(std::string_view text, std::string& problem) {
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  if (first != std::string_view::npos && text[first] == '[') return ParseArray(text, problem);
  std::vector<FilterEntry> filters;
  for (std::size_t number = 1; !text.empty(); ++number) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.empty()) continue;
    auto filter = ParseTsv(line);
    if (!filter) {
      problem =
          "line " + std::to_string(number) + ": expected include or exclude, a tab and the filter's text";
      return std::nullopt;
    }
    filters.push_back(std::move(*filter));
  }
  return filters;
}

}  // namespace TamLogCtl
