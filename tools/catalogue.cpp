// pricemsg-catalogue: a guide to the message classes from the command line.
//
// It lists and searches the classes, shows a class as the tree of everything
// it holds, tells which classes hold a class or have a field, dumps a fresh
// object of any class, prints, converts and compares message files, and
// explains failure texts. Everything it knows comes from the schema tables
// that the generator writes from schema/ (SchemaTables.h): each class's role
// and description, the fields' roles, and the word list that turns the words
// people use for products ("swaption", "range accrual") into parts of class
// names. Objects are made and compared through the library's reflection.
//
// The command line is read with CLI11: each command is one row of Commands()
// and one function (CatalogueCommands.cpp), and its options take
// "--opt=value", "--opt value" and "-o value". Results go to stdout. A name
// or number that matches nothing is an error on stderr with the nearest
// names, and exit status 1; a wrong command line is one line on stderr that
// points at the command's --help, with exit status 2; output that cannot be
// written is an error with exit status 3. Arguments are quoted in errors cut
// short, with their control bytes escaped, and a name far longer than any is
// near none.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include "Catalogue.h"
#include "CatalogueParts.h"

namespace catalogue {
namespace {

#ifndef PRICEMSG_VERSION_STRING
#error "PRICEMSG_VERSION_STRING must be defined by the build"
#endif
constexpr char kVersion[] = PRICEMSG_VERSION_STRING;

// An option of a command, as CLI11 takes it.
struct OptionRow {
  const char* names;  // "-d,--depth": a short name, then the long one
  const char* value;  // what its value is, in the help ("N"); null for a flag
  const char* help;
};

// A command: one row here and the function that runs it. Its help is made
// from the row, and CLI11 reads its options; the function gets the operands
// (their count already checked) and the options that were given, and calls
// Refuse for any other wrong use.
struct Command {
  const char* name;
  const char* operands;  // in the usage line: "<class|number>"
  size_t minOperands;
  size_t maxOperands;
  const char* wrongCount;  // the error for a wrong count of operands
  const char* summary;     // one line, in the list of commands
  const char* details;     // more, in the command's own help; may be ""
  std::vector<OptionRow> options;
  int (*run)(const Io& io, const Args& args);
};

constexpr size_t kAny = SIZE_MAX;

const std::vector<Command>& Commands() {
  static const std::vector<Command> commands = {
      {"list",
       "[words...]",
       0,
       kAny,
       "",
       "the classes, or those that match the words",
       "Without words, every class by name. With words, the classes that match\n"
       "them all, requests first, then the best matches. A word matches a class\n"
       "when it is in the class's name (any case), when the word list of the\n"
       "schema says it stands for a part of the name (swaption: Swptn), or when\n"
       "it is a word of the class's description; phrases of the word list\n"
       "(\"range accrual\") count as one word. Each line gives the class, its\n"
       "number, family and role, and its description.",
       {{"-r,--role", "ROLE", "only the classes of that role"},
        {"-f,--family", "FAMILY", "only the classes of that family"}},
       List},
      {"find",
       "<words...|number>",
       1,
       kAny,
       "takes one or more words, or a number",
       "the classes and fields that match the words, or have that number",
       "The classes match as for list, requests first; the fields match by\n"
       "name or by role. A number finds the class of that number and the\n"
       "fields of that tag. With --role or --family, classes only. Below a\n"
       "request stands its likely reply, where the names of its family pair it\n"
       "with one; the service decides which class answers.",
       {{"-r,--role", "ROLE", "only the classes of that role"},
        {"-f,--family", "FAMILY", "only the classes of that family"}},
       Find},
      {"show",
       "<class|number>",
       1,
       1,
       "takes one class, by name or number",
       "the class as a tree of its fields down to the values",
       "The class's line gives its number and family, the next its role and\n"
       "description, and a request's next its likely reply, where the names of\n"
       "its family pair it with one (the service decides which class answers).\n"
       "Each field comes with its tag, its kind, the class it holds and its\n"
       "role, and a message field with the fields of its class.",
       {{"-d,--depth", "N", "stop after N levels, marking a cut field with ..."}},
       Show},
      {"holders",
       "<class|field>",
       1,
       1,
       "takes one class or one field, by name",
       "the classes that hold a class, and in which fields; or that have a field",
       "",
       {},
       Holders},
      {"dump",
       "<class|number>",
       1,
       1,
       "takes one class, by name or number",
       "the Dump of a fresh object of the class",
       "",
       {},
       Dump},
      {"file",
       "<path>",
       1,
       1,
       "takes the path of one message file",
       "a message file, each value with its class and field name",
       "The file is checked against the classes; a file that does not fit is\n"
       "told with the line and column where it goes wrong.",
       {},
       File},
      {"template",
       "<class|number>",
       1,
       1,
       "takes one class, by name or number",
       "a message file of the class with every field, to fill in and load",
       "Every field is there with a placeholder value (0, N, 20000101, \"\"),\n"
       "nested blocks included and one element of each array, each under a\n"
       "comment line with its kind and role. The file loads as it is, into an\n"
       "object of the class (MA_LoadMsgFile). With --json, as a JSON message\n"
       "file, without the comments.",
       {{"-j,--json", nullptr, "write the template as JSON"}},
       Template},
      {"convert",
       "<in> [out]",
       1,
       2,
       "takes a message file to read, and one to write",
       "a message file from text to JSON or from JSON to text",
       "The input is JSON when it starts with '{', else text. An output name\n"
       "ending in .json is written as JSON, any other as text, whole or not at\n"
       "all; without one, or as -, the standard output takes the form that the\n"
       "input is not.",
       {},
       Convert},
      {"diff",
       "<a> <b>",
       2,
       2,
       "takes two message files",
       "the fields in which two message files of one class differ",
       "Each file, text or JSON, is loaded into an object of its class, and the\n"
       "objects are compared field by field, all the way down: one line for\n"
       "each field that differs, its path and both values (\"-\" for unset).\n"
       "Exit status, as diff's: 0 the same, 1 different, 2 a file that does not\n"
       "read or load, or files of two classes.",
       {},
       Diff},
      {"explain",
       "<failure text...>",
       1,
       kAny,
       "takes one or more failure texts",
       "the fields that a failure of Load or ToMsg names, down to its first cause",
       "Give the failure texts as a log shows them (M_EqStd:SET_SUB_ONE(M3540.T4566)\n"
       "fail), one level or several, in any order, one an argument or several in\n"
       "one; - reads them from the standard input. The first line is the path of\n"
       "field names with the tag, class, kind and code of the cause; one line\n"
       "follows for each level.",
       {},
       Explain},
  };
  return commands;
}

const Command* CommandNamed(const std::string& name) {
  for (const Command& c : Commands()) {
    if (name == c.name) return &c;
  }
  return nullptr;
}

// The first name of an option row with its dashes: "--depth" of "-d,--depth".
std::string LongName(const OptionRow& o) {
  const std::string names = o.names;
  const size_t at = names.find("--");
  return at == std::string::npos ? names : names.substr(at);
}

void Help(FILE* out) {
  std::fprintf(out,
               "usage: %s <command> [options] [arguments]\n\n"
               "A guide to the %d message classes of pricemsg.\n\ncommands:\n",
               kTool, pricemsg::schema::Classes().size());
  size_t width = 4;  // "help"
  for (const Command& c : Commands()) width = std::max(width, std::strlen(c.name));
  for (const Command& c : Commands()) {
    std::fprintf(out, "  %s  %s\n", Pad(c.name, width).c_str(), c.summary);
  }
  std::fprintf(out,
               "  %s  this text, or a command's\n\n"
               "options:\n  -h, --help     this text; after a command, the command's help\n"
               "  -V, --version  the version\n\n"
               "A class is named as in C++ (M_IrNoteHwOut; any case, the M_ may be left out)\n"
               "or by its number. Exit status: 0 found, 1 not found, 2 a wrong command line,\n"
               "3 the output could not be written.\n",
               Pad("help", width).c_str());
}

void Help(FILE* out, const Command& c) {
  std::string summary = c.summary;
  summary[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(summary[0])));
  std::fprintf(out, "usage: %s %s%s %s\n\n%s.\n", kTool, c.name,
               c.options.empty() ? "" : " [options]", c.operands, summary.c_str());
  if (*c.details) std::fprintf(out, "\n%s\n", c.details);
  std::vector<std::pair<std::string, std::string>> rows;
  for (const OptionRow& o : c.options) {
    std::string names = o.names;
    const size_t comma = names.find(',');
    if (comma != std::string::npos) names.replace(comma, 1, ", ");
    rows.emplace_back(names + (o.value ? std::string(" ") + o.value : ""), o.help);
  }
  rows.emplace_back("-h, --help", "this text");
  size_t width = 0;
  for (const auto& r : rows) width = std::max(width, r.first.size());
  std::fprintf(out, "\noptions:\n");
  for (const auto& r : rows)
    std::fprintf(out, "  %s  %s\n", Pad(r.first, width).c_str(), r.second.c_str());
  // How to give a value, shown on the first option that takes one.
  for (const OptionRow& o : c.options) {
    if (!o.value) continue;
    const std::string name = LongName(o);
    const std::string shortName = std::string(o.names).substr(0, std::string(o.names).find(','));
    std::fprintf(out, "\nAn option's value follows it: %s=%s, %s %s or %s %s.\n", name.c_str(),
                 o.value, name.c_str(), o.value, shortName.c_str(), o.value);
    break;
  }
}

// A usage error: one line on `err` that names the command, if known, and
// points at its help. Arguments in `what` are already Shown.
int BadCommandLine(const Io& io, const Command* c, const std::string& what) {
  const std::string who = c ? std::string(kTool) + " " + c->name : std::string(kTool);
  std::fprintf(io.err, "%s: %s; see '%s --help'\n", who.c_str(), what.c_str(), who.c_str());
  return kBadCommandLine;
}

// CLI11's text of a parse error as one of ours: lower case first, no
// trailing period, and the arguments it quotes escaped and cut short.
std::string ParseErrorText(const CLI::ParseError& e, const CLI::App* at) {
  if (dynamic_cast<const CLI::ExtrasError*>(&e) && at) {
    const std::vector<std::string> extra = at->remaining();
    if (!extra.empty()) {
      return (extra[0].rfind("-", 0) == 0 ? "has no option '" : "takes no more than that, not '") +
             Shown(extra[0]) + "'";
    }
  }
  std::string text = e.what();
  // "--depth: 1 required TEXT missing"
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&e) && text.rfind("-", 0) == 0 &&
      text.find(':') != std::string::npos) {
    return text.substr(0, text.find(':')) + " needs a value";
  }
  while (!text.empty() && (text.back() == '.' || text.back() == '\n')) text.pop_back();
  if (!text.empty()) text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
  return Shown(text, 200);
}

// The command line's command, run.
int RunCommand(const Io& io, int argc, const char* const* argv) {
  if (argc < 2) {
    std::string names;
    for (const Command& c : Commands()) names += (names.empty() ? "" : ", ") + std::string(c.name);
    return BadCommandLine(io, nullptr, "give a command (" + names + ")");
  }
  const std::string first = argv[1];
  if (!first.empty() && first[0] == '-') {
    if (first != "-h" && first != "--help" && first != "-V" && first != "--version") {
      const bool version = first == "-v" || first == "--v" || first == "-version";
      return BadCommandLine(io, nullptr,
                            "no option '" + Shown(first) + "' before a command" +
                                (version ? " (the version is -V or --version)" : ""));
    }
  } else {
    if (first != "help" && !CommandNamed(first)) {
      // Words that other tools use for a command of this one.
      static constexpr std::pair<const char*, const char*> kAliases[] = {
          {"search", "find"},   {"grep", "find"}, {"ls", "list"},     {"cat", "file"},
          {"describe", "show"}, {"info", "show"}, {"compare", "diff"}};
      std::vector<std::string_view> names{"help"};
      for (const Command& c : Commands()) names.push_back(c.name);
      std::vector<std::string_view> nearest = pricemsg::schema::Nearest(first, names);
      for (const auto& [alias, command] : kAliases) {
        if (Lower(first) == alias) nearest.insert(nearest.begin(), command);
      }
      return BadCommandLine(
          io, nullptr,
          "no command '" + Shown(first) + "'" +
              (nearest.empty() ? "" : " (did you mean '" + std::string(nearest[0]) + "'?)"));
    }
  }

  CLI::App app("", kTool);
  app.set_version_flag("-V,--version", std::string(kTool) + " " + kVersion);
  app.require_subcommand(1);
  std::vector<std::pair<CLI::App*, const Command*>> subs;
  std::vector<std::string> helpTopic;
  CLI::App* help = app.add_subcommand("help", "this text, or a command's");
  help->add_option("command", helpTopic);
  Args args;
  // Each option of each command, with its long name.
  std::vector<std::tuple<const Command*, CLI::Option*, std::string>> given;
  for (const Command& c : Commands()) {
    CLI::App* sub = app.add_subcommand(c.name, c.summary);
    sub->add_option("operands", args.operands);
    for (const OptionRow& o : c.options) {
      std::string& value = args.options[LongName(o).substr(2)];
      CLI::Option* option = o.value ? sub->add_option(o.names, value) : sub->add_flag(o.names);
      option->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
      given.emplace_back(&c, option, LongName(o).substr(2));
    }
    subs.emplace_back(sub, &c);
  }
  auto selected = [&]() -> const Command* {
    for (const auto& [sub, c] : subs) {
      if (sub->parsed()) return c;
    }
    return nullptr;
  };
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    const Command* c = selected();
    if (c) {
      Help(io.out, *c);
    } else {
      Help(io.out);
    }
    return kFound;
  } catch (const CLI::CallForVersion& e) {
    std::fprintf(io.out, "%s\n", e.what());
    return kFound;
  } catch (const CLI::ParseError& e) {
    const Command* c = selected();
    CLI::App* at = &app;
    for (const auto& [sub, row] : subs) {
      if (row == c) at = sub;
    }
    return BadCommandLine(io, c, ParseErrorText(e, at));
  }

  if (help->parsed()) {
    if (helpTopic.empty()) {
      Help(io.out);
      return kFound;
    }
    const Command* c = CommandNamed(helpTopic[0]);
    if (helpTopic.size() > 1 || !c) {
      return BadCommandLine(io, nullptr,
                            "help takes one command, not '" + Shown(Joined(helpTopic, " ")) + "'");
    }
    Help(io.out, *c);
    return kFound;
  }
  const Command* c = selected();
  if (!c) return BadCommandLine(io, nullptr, "give a command");
  // The options are bound to args.options; those not given are left out.
  std::map<std::string, std::string> options;
  for (const auto& [row, option, name] : given) {
    if (row == c && option->count() > 0) options[name] = args.options[name];
  }
  args.options = std::move(options);
  if (args.operands.size() < c->minOperands || args.operands.size() > c->maxOperands) {
    return BadCommandLine(io, c, c->wrongCount);
  }
  try {
    return c->run(io, args);
  } catch (const BadUsage& e) {
    return BadCommandLine(io, c, e.what);
  }
}

}  // namespace

int Run(int argc, const char* const* argv, FILE* out, FILE* err) {
  const int status = RunCommand(Io{out, err}, argc, argv);
  // Output that did not reach its file is a failure, whatever the command
  // found: a full disk or a closed pipe must not pass for a result.
  errno = 0;
  if (std::fflush(out) != 0 || std::ferror(out)) {
    const int failure = errno;
    std::fprintf(err, "%s: cannot write the output%s%s\n", kTool, failure ? ": " : "",
                 failure ? std::strerror(failure) : "");
    return kOutputFailed;
  }
  return status;
}

}  // namespace catalogue
