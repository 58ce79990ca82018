// Message templates of every class, and message files loaded into objects in
// one call.
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ClassCases.h"
#include "MsgJson.h"
#include "MsgText.h"
#include "Reflect.h"
#include "RuntimeFaults.h"
#include "SchemaTables.h"
#include "TestSupport.h"
#include "TextTesting.h"
#include "shared/M_SysReject.h"
#include "shared/M_Tiv.h"

using namespace testing_support;
namespace fs = std::filesystem;
namespace schema = pricemsg::schema;

namespace {

// The text without its comment lines.
std::string WithoutComments(const std::string& text) {
  std::istringstream in(text);
  std::string out, line;
  while (std::getline(in, line)) {
    const size_t first = line.find_first_not_of(" \t");
    if (first != std::string::npos && line[first] == '#') continue;
    out += line + '\n';
  }
  return out;
}

// The first field of the tree, by its path of field names, that lacks a value
// or holds it unset, or whose array does not hold exactly one element; ""
// if every field of every class in the tree is there and set.
std::string FirstFieldNotSet(CMsg& msg, const std::string& path = "") {
  const schema::ClassInfo* cls = schema::FindClass(msg.msgnum);
  if (!cls) return path + " (no class)";
  for (int i = 0; i < cls->memberCount; ++i) {
    const schema::FieldInfo& f = schema::MemberOf(*cls, i);
    const std::string at = path + "/" + f.name;
    bool set = false;
    switch (f.kind) {
      case schema::Kind::kInt: {
        CInt v;
        set = msg.GetValue(f.tag, &v) >= 0 && v.isSet;
        break;
      }
      case schema::Kind::kDbl: {
        CDbl v;
        set = msg.GetValue(f.tag, &v) >= 0 && v.isSet;
        break;
      }
      case schema::Kind::kBool: {
        CBool v;
        set = msg.GetValue(f.tag, &v) >= 0 && v.isSet;
        break;
      }
      case schema::Kind::kDate: {
        CDate v;
        set = msg.GetValue(f.tag, &v) >= 0 && v.isSet;
        break;
      }
      case schema::Kind::kString: {
        CString v;
        set = msg.GetValue(f.tag, &v) >= 0;
        break;
      }
      case schema::Kind::kIntArray: {
        CIntArray v;
        set = msg.GetValue(f.tag, &v) >= 0 && v.size == 1;
        break;
      }
      case schema::Kind::kDblArray: {
        CDblArray v;
        set = msg.GetValue(f.tag, &v) >= 0 && v.size == 1;
        break;
      }
      case schema::Kind::kMessage: {
        CMsg* sub = nullptr;
        if (msg.GetValue(f.tag, &sub) < 0 || !sub) return at;
        const std::string below = FirstFieldNotSet(*sub, at);
        if (!below.empty()) return below;
        set = true;
        break;
      }
      case schema::Kind::kMessageArray: {
        CMsgArray subs(true);
        if (msg.GetValue(f.tag, &subs) < 0 || subs.GetSize() != 1) return at;
        const std::string below = FirstFieldNotSet(*subs.GetAt(0), at + "[0]");
        if (!below.empty()) return below;
        set = true;
        break;
      }
    }
    if (!set) return at;
  }
  return "";
}

// Every value line follows a comment with the kind of its field (and the
// class a sub-message holds, and the role where the field has one), and
// every block opens with a comment naming its class. Gives the first line
// that breaks this, or "".
std::string FirstLineWithoutItsComment(const std::string& text) {
  std::vector<std::string> lines;  // without their indent
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    const size_t first = line.find_first_not_of(' ');
    lines.push_back(first == std::string::npos ? "" : line.substr(first));
  }
  for (size_t i = 0; i < lines.size(); ++i) {
    const std::string& item = lines[i];
    const std::string shown = "line " + std::to_string(i + 1) + ": " + item;
    if (item.empty()) return shown;
    if (item[0] == 'T') {
      std::istringstream words(item);
      std::string tag, name;
      words >> tag >> name;
      const schema::FieldInfo* f = schema::FindField(name);
      if (!f || "T" + std::to_string(f->tag) != tag || i == 0) return shown;
      std::string expected = std::string("# ") + schema::InfoOf(f->kind).words;
      if (f->held >= 0) expected += std::string(" of ") + schema::HeldClass(*f).name;
      const std::string& comment = lines[i - 1];
      if (comment.compare(0, expected.size(), expected) != 0 ||
          (*f->role && comment.find(f->role) == std::string::npos)) {
        return shown + " after " + comment;
      }
    }
    const size_t block = item.rfind(" {");
    if (block != std::string::npos && block + 2 == item.size()) {
      // "... M<number> <name> {": the next line names the class.
      const size_t m = item.rfind(" M", item.rfind(' ', block - 1) - 1);
      std::istringstream words(item.substr(m == std::string::npos ? 0 : m + 1));
      std::string number, name;
      words >> number >> name;
      const schema::ClassInfo* cls = schema::FindClass(name);
      if (!cls || i + 1 == lines.size()) return shown;
      std::string expected = "# " + name + " (" + number + ")";
      if (*cls->role) expected += std::string(": ") + cls->role;
      if (lines[i + 1].compare(0, expected.size(), expected) != 0) {
        return shown + " before " + lines[i + 1];
      }
    }
  }
  return "";
}

// The template of every class reads back, loads into a new object of its
// class, and has every field: the object's own text is the template's
// without its comments, and every value in it is set.
TEST(MsgTemplate, EveryClassReadsBackAndLoadsWithEveryFieldSet) {
  ASSERT_EQ(AllClasses().size(), 1159u);
  for (const ClassCase& c : AllClasses()) {
    SCOPED_TRACE(c.name);
    std::string text = "kept\n";
    MsgTextError err{};
    ASSERT_EQ(MA_WriteMsgTemplate(c.number, &text, &err), MSGTEXT_OK) << err.reason;
    ASSERT_EQ(text.compare(0, 5, "kept\n"), 0);  // appended
    text.erase(0, 5);
    EXPECT_EQ(err.line, 0);
    EXPECT_STREQ(err.reason, "");

    MsgPtr tree(MA_ReadMsgText(text.data(), text.size(), &err));
    ASSERT_TRUE(tree) << err.line << ":" << err.column << " " << err.reason;
    std::unique_ptr<CMsgBase> obj = c.make();
    ASSERT_EQ(obj->Load(tree.get()), 0) << obj->errtext.ToStr();
    MsgPtr back(obj->ToMsg());
    ASSERT_TRUE(back) << obj->errtext.ToStr();
    EXPECT_EQ(FirstFieldNotSet(*back), "");
    std::string written;
    ASSERT_EQ(MA_WriteMsgText(back.get(), &written), MSGTEXT_OK);
    EXPECT_EQ(written, WithoutComments(text));
    EXPECT_EQ(FirstLineWithoutItsComment(text), "");
  }
}

TEST(MsgTemplate, ASmallClassLineByLineAndWhatIsRefused) {
  std::string text;
  ASSERT_EQ(MA_WriteMsgTemplate(2143, &text), MSGTEXT_OK);
  // The comments carry the role and description of the class and the role
  // of each field, where the schema gives them.
  namespace schema = pricemsg::schema;
  const schema::ClassInfo& tiv = *schema::FindClass(2143);
  auto with = [](std::string head, const char* more) { return *more ? head + ": " + more : head; };
  auto field = [&](int tag, const char* kind) {
    return with(kind, schema::FindMember(tiv, tag)->role);
  };
  EXPECT_EQ(text,
            "M2143 M_Tiv {\n"
            "  # " +
                with(with("M_Tiv (M2143)", tiv.role), tiv.description) +
                "\n"
                "  # " +
                field(198, "date") +
                "\n"
                "  T198 nDate n \"20000101\"\n"
                "  # " +
                field(775, "string") +
                "\n"
                "  T775 sDateType s \"\"\n"
                "  # " +
                field(800, "string") +
                "\n"
                "  T800 sMatur s \"\"\n"
                "}\n");
  EXPECT_NE(std::string(tiv.description), "");

  // A number of no class, and no output: nothing written, the reason said.
  for (int number : {0, -1, 9, 11, 1238, 4863, INT_MIN, INT_MAX}) {
    std::string out = "as it was";
    MsgTextError err{};
    EXPECT_EQ(MA_WriteMsgTemplate(number, &out, &err), MSGTEXT_E_CLASS) << number;
    EXPECT_EQ(out, "as it was");
    EXPECT_NE(std::strstr(err.reason, ("M" + std::to_string(number)).c_str()), nullptr)
        << err.reason;
  }
  MsgTextError err{};
  EXPECT_EQ(MA_WriteMsgTemplate(2143, nullptr, &err), MSGTEXT_E_ARG);
  EXPECT_STREQ(err.reason, "no output");
  EXPECT_EQ(MA_WriteMsgTemplate(-5, &text), MSGTEXT_E_CLASS);  // no error to fill
}

TEST(MsgFile, LoadsAFileIntoAnObjectOrSaysWhyNot) {
  TempDir dir;
  std::string text;
  ASSERT_EQ(MA_WriteMsgTemplate(2143, &text), MSGTEXT_OK);
  const std::string filled = [&] {
    std::string t = text;
    const size_t at = t.find("\"20000101\"");
    t.replace(at, 10, "\"20261123\"");
    t.replace(t.find("T800 sMatur s \"\""), 16, "T800 sMatur s \"3M\"");
    return t;
  }();
  const std::string good = dir.File("tiv.msg", filled);

  // Success: the values of the file, err cleared.
  M_Tiv tiv;
  MsgTextError err{1, 1, "stale"};
  ASSERT_EQ(MA_LoadMsgFile(good.c_str(), &tiv, &err), MSGTEXT_OK) << err.reason;
  EXPECT_EQ(err.line, 0);
  EXPECT_STREQ(err.reason, "");
  EXPECT_TRUE(tiv.nDate.isSet);
  EXPECT_STREQ(tiv.nDate.text, "20261123");
  EXPECT_EQ(Str(tiv.sMatur), "3M");
  EXPECT_EQ(Str(tiv.sDateType), "");
  EXPECT_EQ(MA_LoadMsgFile(good.c_str(), &tiv), MSGTEXT_OK);  // no error to fill

  // A file that MA_WriteMsgFile wrote from a filled sample loads whole.
  for (int number : {10, 3685, 1264}) {
    MsgPtr sample = BuildSample(number, true);
    const std::string path = dir.Path("sample-" + std::to_string(number) + ".msg");
    ASSERT_EQ(MA_WriteMsgFile(sample.get(), path.c_str()), MSGTEXT_OK);
    const ClassCase* c = nullptr;
    for (const ClassCase& k : AllClasses()) {
      if (k.number == number) c = &k;
    }
    ASSERT_TRUE(c);
    std::unique_ptr<CMsgBase> obj = c->make();
    ASSERT_EQ(MA_LoadMsgFile(path.c_str(), obj.get(), &err), MSGTEXT_OK) << err.reason;
    MsgPtr back(obj->ToMsg());
    EXPECT_EQ(Text(back.get()), Text(sample.get())) << number;
  }

  // JSON is a message file like the text form: its template loads, and a
  // damaged one is told at its line and column.
  std::string json;
  ASSERT_EQ(MA_WriteMsgJsonTemplate(3685, &json), MSGTEXT_OK);
  EXPECT_EQ(json.rfind("{\n  \"class\": \"M_IrTargetSwitching\"", 0), 0u) << json.substr(0, 80);
  const std::string jsonPath = dir.File("switching.json", json);
  std::unique_ptr<CMsgBase> switching = pricemsg::NewMessage(3685);
  ASSERT_EQ(MA_LoadMsgFile(jsonPath.c_str(), switching.get(), &err), MSGTEXT_OK) << err.reason;
  std::string templ;
  ASSERT_EQ(MA_WriteMsgTemplate(3685, &templ), MSGTEXT_OK);
  MsgPtr fromText(MA_ReadMsgText(templ.data(), templ.size(), &err));
  MsgPtr fromJson(switching->ToMsg());
  EXPECT_EQ(Text(fromJson.get()), Text(fromText.get()));
  const std::string badJson = dir.File("bad.json", "\xEF\xBB\xBF  {\"class\": \"M_Tiv\",\n \"nDate\": 7}");
  M_Tiv fromBad;
  EXPECT_EQ(MA_LoadMsgFile(badJson.c_str(), &fromBad, &err), MSGTEXT_E_TEXT);
  EXPECT_EQ(err.line, 2);
  EXPECT_EQ(err.column, 11);
  EXPECT_NE(std::strstr(err.reason, "/nDate: expected a date or null"), nullptr) << err.reason;

  // A missing file: at line 0, naming the file and the cause.
  M_Tiv fresh;
  const std::string missing = dir.Path("missing.msg");
  EXPECT_EQ(MA_LoadMsgFile(missing.c_str(), &fresh, &err), MSGTEXT_E_IO);
  EXPECT_EQ(err.line, 0);
  EXPECT_NE(std::strstr(err.reason, "missing.msg"), nullptr) << err.reason;
  EXPECT_NE(std::strstr(err.reason, std::strerror(ENOENT)), nullptr) << err.reason;
  // A directory cannot be read as a file.
  EXPECT_EQ(MA_LoadMsgFile(dir.Path("").c_str(), &fresh, &err), MSGTEXT_E_IO);

  // A file of another class: both named, the object untouched.
  M_SysReject reject;
  EXPECT_EQ(MA_LoadMsgFile(good.c_str(), &reject, &err), MSGTEXT_E_CLASS);
  EXPECT_STREQ(err.reason, "the file holds M_Tiv (M2143), not M_SysReject (M10)");
  EXPECT_EQ(err.line, 0);
  EXPECT_FALSE(reject.iSysCode.isSet);
  EXPECT_EQ(Str(reject.errtext), "");

  // A damaged file: where, by line and column, comments counted.
  const std::pair<std::string, std::pair<int, int>> damaged[] = {
      {"M2143 M_Tiv {\n  # a date\n  T198 nDate n 20261123\n}\n", {3, 16}},
      {"M2143 M_Tiv {\n  T198 nDate n \"202611231\"\n}\n", {2, 16}},
      {"M2143 M_Tiv {\n  T775 sDateType i 0\n}\n", {2, 18}},
      {"M2143 M_Tiv {\n  T198 nDate n \"20261123\"\n", {3, 1}},
      {filled.substr(0, filled.size() / 2), {0, 0}},  // cut anywhere: a position at the end
      {"", {1, 1}},
  };
  for (const auto& [content, where] : damaged) {
    const std::string path = dir.File("damaged.msg", content);
    M_Tiv target;
    MsgTextError read{};
    EXPECT_EQ(MA_LoadMsgFile(path.c_str(), &target, &read), MSGTEXT_E_TEXT) << content;
    MsgTextError expected{};
    MsgPtr none(MA_ReadMsgText(content.data(), content.size(), &expected));
    EXPECT_FALSE(none);
    EXPECT_EQ(read.line, expected.line) << content;
    EXPECT_EQ(read.column, expected.column) << content;
    EXPECT_STREQ(read.reason, expected.reason) << content;
    EXPECT_GT(read.line, 0) << content;
    if (where.first) {
      EXPECT_EQ(read.line, where.first) << content << read.reason;
      EXPECT_EQ(read.column, where.second) << content << read.reason;
    }
    EXPECT_FALSE(target.nDate.isSet);
  }

  // A Load that fails: its code and the object's own text.
  ASSERT_TRUE(ArmFault(FaultOp::kGet, 775, -13));
  M_Tiv failing;
  EXPECT_EQ(MA_LoadMsgFile(good.c_str(), &failing, &err), MSGTEXT_E_LOAD);
  ClearFaults();
  EXPECT_STREQ(err.reason,
               "M_Tiv (M2143) Load failed (code -13): M_Tiv:GET_VAL_ONE(M2143.T775) fail");
  EXPECT_EQ(Str(failing.errtext), "M_Tiv:GET_VAL_ONE(M2143.T775) fail");
  EXPECT_STREQ(failing.nDate.text, "20261123");  // read before the failure

  // Nothing to load or to load into.
  EXPECT_EQ(MA_LoadMsgFile(nullptr, &fresh, &err), MSGTEXT_E_ARG);
  EXPECT_EQ(MA_LoadMsgFile("", &fresh, &err), MSGTEXT_E_ARG);
  EXPECT_EQ(MA_LoadMsgFile(good.c_str(), nullptr, &err), MSGTEXT_E_ARG);
  EXPECT_STREQ(err.reason, "no object to load");
  EXPECT_FALSE(fresh.nDate.isSet);
}

}  // namespace
