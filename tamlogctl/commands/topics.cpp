#include "tamlogctl/commands/topics.h"

#include <algorithm>

namespace TamLogCtl {

namespace {

constexpr const char* kTimes =
    R"(Times are given to -S and -U in one of these forms:

  2026-01-02 03:04:05.678     as printed; with a T in the middle; without milliseconds, seconds or time of day
  !2026,13,40,0,0,0,0         the words of an impossible date, as printed
  10:00, 10:00:30.5           today
  now, today, tomorrow        the last two at midnight
  yesterday 10:00             a day with a time of day
  -90s, -15m, -1h30m, -3d     before now; units are ms, s, m, h, d and w
  '1 hour ago', +2h           before and after now
  2026-01-02T03:04:05+01:00   with a zone; Z is UTC
  @1767322800.5               seconds since 1970 in UTC

Messages carry no zone: times are those of their senders' clocks. With --relative-to end, times of day and durations
count from the end of the copied logs instead of from now.)";

constexpr const char* kExpressions =
    R"(Expressions are given to -g, -v and --highlight:

  abc                         these letters
  . [a-z] [^a-z] [[:digit:]]  any byte, one of a set, one not of it, a named set
  \d \w \s, \D \W \S          a digit, a letter of a word, a blank; one that is none
  ^ $ \b \B \< \>             begin and end of the text, edge of a word, no edge, begin and end of a word
  (ab) (?:ab) a|b             a group, alternatives
  a* a+ a? a{2} a{2,} a{2,5}  repetitions
  \n \r \t \f \v \x1b \.      a control character, a byte, a character that is special elsewhere

All in lower case, an expression ignores the case of A to Z; -i always does. -F takes it as plain text. Texts are
searched as bytes, in time that is linear in their length. Back-references and look-around are not supported.)";

constexpr const char* kFormats =
    R"(Formats are given to -o, of verbs that print messages:

  short       2026-01-02 03:04:05.678 T2 Camera: text
  full        the same with sequence number, origin, spare word and tail
  cat         the texts alone
  json        one object a line, also called ndjson
  json-array  one array of all objects
  csv         a head line with the names of the columns, then a row a message
  tsv         time, type, source and text with tabs between them; from export every field
  export      the journal export format
  rfc5424     a syslog line
  raw         the 560 bytes of the slot; not to a terminal
  template='{time} {source}: {text}'
              a line that you lay out, of the fields time, seq, type, label, source, text, origin, tail, spare,
              late, host, source_hex, text_hex and cursor

--fields time,text selects the fields of json, json-array, csv and tsv. An impossible date is shown as its words,
!2026,13,40,0,0,0,0, in json as time_words.)";

constexpr const char* kExitStatus = R"(Every verb ends with one of these codes:

  0    done
  1    a negative answer: nothing matched, not stored, something was found, the user declined
  2    usage: a wrong option, value or input, or the file to be written already exists; nothing was done
  3    no server, no service, or no such file
  4    the system refused access
  5    the server, or a lock of the shared log, was not free in time
  6    the server or the service manager refused
  7    damaged data were met; the readable part was output
  8    output, or the connection to the server, failed
  9    a file is not a log; nothing of it was printed or written
  130  interrupted (Ctrl-C); everything held was released first

An empty log is not an error unless the command searched for something.)";

constexpr const char* kEnvironment = R"(These variables are respected:

  TAMLOGCTL_TYPE_NAMES  the value of --type-names where it is not given, for example 0=info,1=warn,3=err
  TAMLOGCTL_ENCODING    the value of --encoding where it is not given
  NO_COLOR              if not empty, switches colours off unless --color always is given
  TERM                  "dumb" switches colours and the usual pager off
  PAGER                 the program that shows long output on a terminal; empty: none. Where it is not set, less
                        on systems that have it, none on Windows
  TZ                    the zone of this machine, where the system has it in this variable)";

constexpr const char* kFiles = R"(These files belong to the server:

  Logs.dat              the log: in the directory of TamLogServer.exe, or where `tamlogctl settings path` says. It
                        can be copied at any time, and read on any system
  TamLogServiceLog.txt  failures of the service, in its working directory (the system directory)

Its settings are in the registry, in HKLM\SOFTWARE\Brenmark VORTA\Torvane Log Server. tamlogctl itself has no settings
file; it writes only files that are named on the command line, and the backup that `settings set` and `clear` announce.)";

}  // namespace

const std::vector<Topic>& Topics() {
  static const std::vector<Topic> kTopics{{"times", "TIMES", kTimes},
                                          {"expressions", "EXPRESSIONS", kExpressions},
                                          {"formats", "FORMATS", kFormats},
                                          {"exit-status", "EXIT STATUS", kExitStatus},
                                          {"environment", "ENVIRONMENT", kEnvironment},
                                          {"files", "FILES", kFiles}};
  return kTopics;
}

const Topic* FindTopic(const std::string& name) {
  const auto hasName = [&name](const Topic& topic) { return topic.name == name; };
  const auto found = std::find_if(Topics().begin(), Topics().end(), hasName);
  return found == Topics().end() ? nullptr : &*found;
}

}  // namespace TamLogCtl
