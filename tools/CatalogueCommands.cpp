// The commands of pricemsg-catalogue: each gets the operands (their count
// already checked) and the options that were given, writes its result, and
// gives the exit status.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "CatalogueParts.h"
#include "MsgExplain.h"
#include "MsgJson.h"
#include "MsgText.h"
#include "Reflect.h"
#include "RuntimeProbe.h"

namespace catalogue {

namespace ps = pricemsg::schema;

namespace {

// A number from 1 given to an option, else a usage error.
int Positive(const Args& args, const std::string& option) {
  const std::string* text = args.Option(option);
  int n = 0;
  if (!text) return 0;
  if (!ParseNumber(*text, &n) || n == 0) {
    Refuse("--" + option + " takes a number from 1, not '" + Shown(*text) + "'");
  }
  return n;
}

std::string ListOfRoles() {
  std::string out;
  for (const char* r : kRoles) out += (out.empty() ? "" : ", ") + std::string(r);
  return out;
}

// The --role and --family of a command, checked; empty where not given.
std::pair<std::string, std::string> Filters(const Args& args) {
  const std::string* role = args.Option("role");
  const std::string* family = args.Option("family");
  if (role && std::none_of(std::begin(kRoles), std::end(kRoles),
                           [&](const char* r) { return *role == r; })) {
    Refuse("no role '" + Shown(*role) + "'; the roles are " + ListOfRoles());
  }
  const std::vector<std::string> families = Families();
  if (family && std::find(families.begin(), families.end(), *family) == families.end()) {
    Refuse("no family '" + Shown(*family) + "'; the families are " + Joined(families, ", "));
  }
  return {role ? *role : "", family ? *family : ""};
}

// "no class of the fx family with the role request"
std::string NoClassOf(const std::pair<std::string, std::string>& filters, const char* what) {
  std::string out = what;
  if (!filters.second.empty()) out += " of the " + filters.second + " family";
  if (!filters.first.empty()) out += " with the role " + filters.first;
  return out;
}

// A message file of either form (MA_ReadMsgFile tells them apart). Null on
// failure, with `err` saying why. `isJson`, if given, tells the form, from
// the file's start.
std::unique_ptr<CMsg> ReadAnyFile(const std::string& path, MsgTextError* err,
                                  bool* isJson = nullptr) {
  if (isJson) {
    char start[4096];
    size_t n = 0;
    if (std::FILE* f = std::fopen(path.c_str(), "rb")) {
      n = std::fread(start, 1, sizeof start, f);
      std::fclose(f);
    }
    *isJson = MA_IsMsgJson(start, n);
  }
  return std::unique_ptr<CMsg>(MA_ReadMsgFile(path.c_str(), err));
}

}  // namespace

int List(const Io& io, const Args& args) {
  const auto filters = Filters(args);
  const std::vector<ps::SearchTerm> terms = ps::ReadQuery(Joined(args.operands, " "));
  std::vector<const ClassInfo*> found = ps::SearchClasses(terms, filters.first, filters.second);
  if (terms.empty()) std::sort(found.begin(), found.end(), ByClassName);
  if (found.empty()) {
    const std::string what = NoClassOf(filters, "no class");
    if (terms.empty()) {
      std::fprintf(io.err, "%s: %s\n", kTool, what.c_str());
      return kNotFound;
    }
    return NothingMatches(io, terms, what, Joined(args.operands, " "), false);
  }
  PrintClasses(io.out, found, "", Descriptions(found));
  return kFound;
}

int Find(const Io& io, const Args& args) {
  const auto filters = Filters(args);
  const bool filtered = !filters.first.empty() || !filters.second.empty();
  std::vector<const ClassInfo*> classes;
  std::vector<const FieldInfo*> fields;
  int number = 0;
  const bool byNumber = args.operands.size() == 1 && ParseNumber(args.operands[0], &number);
  const std::vector<ps::SearchTerm> terms = ps::ReadQuery(Joined(args.operands, " "));
  if (terms.empty()) Refuse("takes one or more words, or a number");
  if (byNumber) {
    const ClassInfo* c = ps::FindClass(number);
    if (c && (filters.first.empty() || filters.first == c->role) &&
        (filters.second.empty() || filters.second == c->family))
      classes.push_back(c);
    if (!filtered) fields = FieldsByTag(number);
    if (classes.empty() && fields.empty()) return NoClass(io, args.operands[0]);
  } else {
    classes = ps::SearchClasses(terms, filters.first, filters.second);
    // Fields have no role or family of their own: a filter keeps classes only.
    if (!filtered) fields = ps::SearchFields(terms);
    if (classes.empty() && fields.empty()) {
      return NothingMatches(io, terms,
                            NoClassOf(filters, filtered ? "no class" : "no class or field"),
                            Joined(args.operands, " "), !filtered);
    }
  }
  if (!classes.empty()) {
    std::fprintf(io.out, "classes (%zu):\n", classes.size());
    PrintClasses(io.out, classes, "  ", Descriptions(classes), true);
  }
  if (!fields.empty()) {
    std::fprintf(io.out, "fields (%zu):\n", fields.size());
    PrintFields(io.out, fields);
  }
  return kFound;
}

int Show(const Io& io, const Args& args) {
  const int depth = Positive(args, "depth");
  const ClassInfo* cls = FindClass(args.operands[0]);
  if (!cls) return NoClass(io, args.operands[0]);
  std::fprintf(io.out, "%s  %d  %s\n", cls->name, cls->number, cls->family);
  if (*cls->role || *cls->description) {
    std::fprintf(io.out, "  %s%s%s\n", cls->role, *cls->role && *cls->description ? ": " : "",
                 cls->description);
  }
  const std::string reply = LikelyReplyText(*cls);
  if (!reply.empty()) std::fprintf(io.out, "  %s\n", reply.c_str());
  PrintTree(io.out, *cls, 1, depth);
  return kFound;
}

int Holders(const Io& io, const Args& args) {
  const std::string& text = args.operands[0];
  const ClassInfo* cls = FindClass(text);
  const FieldInfo* field = cls ? nullptr : FieldByName(text);
  if (!cls && !field) {
    int number = 0;
    if (ParseNumber(text, &number) || HasPrefixM(text)) return NoClass(io, text);
    return NoClassOrField(io, text, "no class or field named '" + Shown(text) + "'");
  }
  // Each holder, with the fields it holds the class in.
  std::vector<std::pair<const ClassInfo*, std::string>> found;
  for (const ClassInfo& holder : ps::Classes()) {
    if (field) {
      if (HasField(holder, *field)) found.emplace_back(&holder, "");
      continue;
    }
    std::string via;
    for (int m = 0; m < holder.memberCount; ++m) {
      const FieldInfo& f = ps::MemberOf(holder, m);
      if (ClassHeld(f) == cls) via += (via.empty() ? "in " : ", ") + std::string(f.name);
    }
    if (!via.empty()) found.emplace_back(&holder, via);
  }
  if (found.empty()) {
    if (cls)
      std::fprintf(io.out, "%s is held by no class: it is a message on its own\n", cls->name);
    if (field) std::fprintf(io.out, "%s is a field of no class\n", field->name);
    return kFound;
  }
  std::sort(found.begin(), found.end(),
            [](const auto& a, const auto& b) { return ByClassName(a.first, b.first); });
  std::vector<const ClassInfo*> classes;
  std::vector<std::string> via;
  for (const auto& [holder, fields] : found) {
    classes.push_back(holder);
    via.push_back(fields);
  }
  PrintClasses(io.out, classes, "", via);
  return kFound;
}

int Dump(const Io& io, const Args& args) {
  const ClassInfo* cls = FindClass(args.operands[0]);
  if (!cls) return NoClass(io, args.operands[0]);
  if (!pricemsg::probe::kAvailable) {
    std::fprintf(io.err, "%s: the runtime of this build offers no way to read a dump\n", kTool);
    return kNotFound;
  }
  const std::unique_ptr<CMsgBase> object = pricemsg::NewMessage(cls->number);
  if (!object) {
    std::fprintf(io.err, "%s: cannot make an object of %s: out of memory\n", kTool, cls->name);
    return kNotFound;
  }
  CStream out;
  object->Dump(&out);
  const std::string text = pricemsg::probe::StreamText(out);
  std::fwrite(text.data(), 1, text.size(), io.out);
  if (text.empty() || text.back() != '\n') std::fputc('\n', io.out);
  return kFound;
}

// Reads a message file, checked against the classes, and prints it back
// with the class and field names; a file that does not fit is reported with
// its line and column.
int File(const Io& io, const Args& args) {
  const std::string& path = args.operands[0];
  MsgTextError err{};
  const std::unique_ptr<CMsg> msg = ReadAnyFile(path, &err);
  std::string text;
  if (!msg || MA_WriteMsgText(msg.get(), &text, &err) != MSGTEXT_OK) {
    FileError(io, path, err.line, err.column, err.reason);
    return kNotFound;
  }
  std::fwrite(text.data(), 1, text.size(), io.out);
  return kFound;
}

// Writes a message file of the class with every field, each with a comment
// line giving its kind and role, ready to fill in and load.
int Template(const Io& io, const Args& args) {
  const ClassInfo* cls = FindClass(args.operands[0]);
  if (!cls) return NoClass(io, args.operands[0]);
  std::string text;
  MsgTextError err{};
  const bool json = args.Option("json") != nullptr;
  if ((json ? MA_WriteMsgJsonTemplate(cls->number, &text, &err)
            : MA_WriteMsgTemplate(cls->number, &text, &err)) != MSGTEXT_OK) {
    std::fprintf(io.err, "%s: no template of %s: %s\n", kTool, cls->name, err.reason);
    return kNotFound;
  }
  std::fwrite(text.data(), 1, text.size(), io.out);
  return kFound;
}

// Reads a message file in one form and writes it in the other, or in the
// form that the output's name says (a name ending in ".json" is JSON); no
// output, or "-", is the standard output.
int Convert(const Io& io, const Args& args) {
  const std::string& in = args.operands[0];
  const std::string out = args.operands.size() > 1 ? args.operands[1] : "-";
  MsgTextError err{};
  bool fromJson = false;
  const std::unique_ptr<CMsg> msg = ReadAnyFile(in, &err, &fromJson);
  if (!msg) {
    FileError(io, in, err.line, err.column, err.reason);
    return kNotFound;
  }
  const bool toJson =
      out == "-" ? !fromJson : out.size() >= 5 && Lower(out.substr(out.size() - 5)) == ".json";
  int rc;
  if (out == "-") {
    std::string text;
    rc = toJson ? MA_WriteMsgJson(msg.get(), &text, &err) : MA_WriteMsgText(msg.get(), &text, &err);
    if (rc == MSGTEXT_OK) std::fwrite(text.data(), 1, text.size(), io.out);
  } else {
    rc = toJson ? MA_WriteMsgJsonFile(msg.get(), out.c_str(), &err)
                : MA_WriteMsgFile(msg.get(), out.c_str(), &err);
  }
  if (rc != MSGTEXT_OK) {
    std::fprintf(io.err, "%s: %s: %s\n", kTool, Shown(out, PATH_MAX).c_str(), err.reason);
    return kOutputFailed;
  }
  return kFound;
}

// Two message files of one class compared field by field, as diff(1)
// answers: 0 equal, 1 different (the fields that differ on the output), 2
// trouble (a file that does not read or load, two classes).
int Diff(const Io& io, const Args& args) {
  constexpr int kDiffer = 1, kTrouble = 2;
  std::unique_ptr<CMsgBase> objects[2];
  for (int i = 0; i < 2; ++i) {
    const std::string& path = args.operands[static_cast<size_t>(i)];
    MsgTextError err{};
    const std::unique_ptr<CMsg> msg = ReadAnyFile(path, &err);
    if (!msg) {
      FileError(io, path, err.line, err.column, err.reason);
      return kTrouble;
    }
    objects[i] = pricemsg::NewMessage(msg->msgnum);
    if (!objects[i]) {
      std::fprintf(io.err, "%s: %s: no class has the number %d\n", kTool,
                   Shown(path, PATH_MAX).c_str(), msg->msgnum);
      return kTrouble;
    }
    if (objects[i]->Load(msg.get()) < 0) {
      std::fprintf(io.err, "%s: %s does not load:\n%s\n", kTool, Shown(path, PATH_MAX).c_str(),
                   MA_ExplainFailure(*objects[i]).c_str());
      return kTrouble;
    }
  }
  if (objects[0]->msgnum != objects[1]->msgnum) {
    std::fprintf(io.err, "%s: the files hold two classes: %s holds %s (%d), %s holds %s (%d)\n",
                 kTool, Shown(args.operands[0], PATH_MAX).c_str(), objects[0]->msgname.ToStr(),
                 objects[0]->msgnum, Shown(args.operands[1], PATH_MAX).c_str(),
                 objects[1]->msgname.ToStr(), objects[1]->msgnum);
    return kTrouble;
  }
  std::vector<pricemsg::Difference> differences;
  if (pricemsg::Diff(*objects[0], *objects[1], &differences) != pricemsg::REFLECT_OK) {
    std::fprintf(io.err, "%s: cannot compare the files: out of memory\n", kTool);
    return kTrouble;
  }
  const std::string text = pricemsg::DiffText(differences);
  std::fwrite(text.data(), 1, text.size(), io.out);
  return differences.empty() ? kFound : kDiffer;
}

// Explains failure texts of Load or ToMsg, as a log gives them, by the
// fields they name, down to the first cause. "-" reads them from the
// standard input.
int Explain(const Io& io, const Args& args) {
  std::string text;
  for (const std::string& operand : args.operands) {
    if (operand != "-") {
      text += operand + "\n";
      continue;
    }
    char buf[4096];
    for (size_t n; (n = std::fread(buf, 1, sizeof buf, stdin)) > 0;) {
      text.append(buf, n);
      if (text.size() > kExplainTextMaxSize) break;  // too long: explain says so
    }
    text += '\n';
  }
  const std::string explained = MA_ExplainFailureText(text);
  const bool ok = explained.rfind("cannot explain:", 0) != 0;
  if (!ok) std::fprintf(io.err, "%s: ", kTool);
  std::fputs(explained.c_str(), ok ? io.out : io.err);
  if (explained.empty() || explained.back() != '\n') std::fputc('\n', ok ? io.out : io.err);
  return ok ? kFound : kNotFound;
}

}  // namespace catalogue
