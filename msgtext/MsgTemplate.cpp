// Message templates: the text of a class with every field present, written
// from the schema tables alone, in the layout of MsgTextWriter.cpp so that
// the template without its comments is what the writer gives for the tree it
// reads back as.
#include <charconv>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "MsgText.h"
#include "TextCommon.h"

namespace pricemsg::text {
namespace {

// The placeholder of each value kind: what the writer writes for the value
// that the reader makes of it; null for the kinds that hold a message.
template <class T>
const char* Placeholder(TypeTag<T>) {
  return "0";  // int, double and their arrays
}
const char* Placeholder(TypeTag<CBool>) { return "N"; }
const char* Placeholder(TypeTag<CDate>) { return "\"20000101\""; }
const char* Placeholder(TypeTag<CString>) { return "\"\""; }
const char* Placeholder(TypeTag<CMsgBase>) { return nullptr; }
const char* Placeholder(TypeTag<CMsgBase_Array>) { return nullptr; }

// How many levels deep the blocks of a class nest, the class's own included,
// up to kMsgTextMaxDepth + 1: a class that holds itself, through repeated
// sub-messages, nests without end. Each class is weighed once, so that a
// class whose fields hold the same class many times over costs no more.
class Nesting {
 public:
  Nesting() : depth_(static_cast<size_t>(schema::Classes().size()), 0) {}

  int Of(const ClassInfo& cls) {
    constexpr int kEndless = kMsgTextMaxDepth + 1;
    int& depth = depth_[static_cast<size_t>(schema::IndexOf(cls))];
    if (depth == kOnTheWay) return kEndless;
    if (depth > 0) return depth;
    depth = kOnTheWay;
    int deepest = 1;
    for (int i = 0; i < cls.memberCount && deepest < kEndless; ++i) {
      const FieldInfo& f = schema::MemberOf(cls, i);
      if (schema::HoldsMessage(f.kind)) {
        const int below = Of(schema::HeldClass(f));
        if (below + 1 > deepest) deepest = below + 1 < kEndless ? below + 1 : kEndless;
      }
    }
    depth = deepest;
    return depth;
  }

 private:
  static constexpr int kOnTheWay = -1;
  std::vector<int> depth_;  // by index in Classes(); 0 until weighed
};

class TemplateWriter {
 public:
  TemplateWriter(std::string& out, MsgTextError* err) : out_(out), err_(err) {}

  int Write(const ClassInfo& cls) {
    const int rc = Block(cls, 1);
    out_ += '\n';
    return rc;
  }

 private:
  void Indent(int level) { out_.append(2 * static_cast<size_t>(level), ' '); }

  void Number(int n) {
    char text[16];
    out_.append(text, std::to_chars(text, text + sizeof text, n).ptr);
  }

  // A text of the tables on one comment line: a line break in it would end
  // the comment and start a line that is no comment.
  void OneLine(const char* text) {
    for (const char* p = text; *p; ++p) {
      out_ += (*p == '\n' || *p == '\r') ? ' ' : *p;
    }
  }

  // "# <class> (M<number>): <role>: <description>", inside the block it
  // heads.
  void ClassComment(const ClassInfo& cls, int level) {
    Indent(level);
    out_ += "# ";
    out_ += cls.name;
    out_ += " (M";
    Number(cls.number);
    out_ += ')';
    for (const char* text : {cls.role, cls.description}) {
      if (*text) {
        out_ += ": ";
        OneLine(text);
      }
    }
    out_ += '\n';
  }

  // "# <kind>[ of <class>][: <role>]" above the field's line.
  void FieldComment(const FieldInfo& f, int level) {
    Indent(level);
    out_ += "# ";
    out_ += schema::InfoOf(f.kind).words;
    if (schema::HoldsMessage(f.kind)) {
      out_ += " of ";
      out_ += schema::HeldClass(f).name;
    }
    if (f.kind == Kind::kMessageArray) {
      out_ += " (one block per element)";
    } else if (schema::InfoOf(f.kind).repeats) {
      out_ += " (one line per element)";
    }
    if (*f.role) {
      out_ += ": ";
      OneLine(f.role);
    }
    out_ += '\n';
  }

  // "M<number> <name> {", the fields, and "}" at the indent of the line that
  // holds the block; `level` is 1 for the outer message.
  int Block(const ClassInfo& cls, int level) {
    out_ += 'M';
    Number(cls.number);
    out_ += ' ';
    out_ += cls.name;
    out_ += " {\n";
    ClassComment(cls, level);
    for (int i = 0; i < cls.memberCount; ++i) {
      const FieldInfo& f = schema::MemberOf(cls, i);
      FieldComment(f, level);
      Indent(level);
      out_ += 'T';
      Number(f.tag);
      out_ += ' ';
      out_ += f.name;
      out_ += ' ';
      out_ += schema::InfoOf(f.kind).letter;
      out_ += ' ';
      if (const char* value =
              pricemsg::WithKind(f.kind, [](auto type) { return Placeholder(type); })) {
        out_ += value;
      } else {
        const ClassInfo& held = schema::HeldClass(f);
        if (level == kMsgTextMaxDepth) {
          return SetError(err_, MSGTEXT_E_DEPTH, 0, 0,
                          "%s (M%d) T%d %s: messages nest more than %d levels deep", cls.name,
                          cls.number, f.tag, f.name, kMsgTextMaxDepth);
        }
        if (const int rc = Block(held, level + 1)) return rc;
      }
      out_ += '\n';
    }
    Indent(level - 1);
    out_ += '}';
    return MSGTEXT_OK;
  }

  std::string& out_;
  MsgTextError* err_;
};

}  // namespace
}  // namespace pricemsg::text

int MA_WriteMsgTemplate(int classNumber, std::string* out, MsgTextError* err) {
  using pricemsg::text::SetError;
  if (!out) return SetError(err, MSGTEXT_E_ARG, 0, 0, "no output");
  const pricemsg::schema::ClassInfo* cls = pricemsg::schema::FindClass(classNumber);
  if (!cls) return SetError(err, MSGTEXT_E_CLASS, 0, 0, "no class has the number M%d", classNumber);
  return pricemsg::text::AppendWhole(out, err, [&](std::string& to) {
    // A class too deep is refused before a line is written: a class that
    // holds itself would otherwise be unfolded down to the limit, along every
    // way at once.
    if (pricemsg::text::Nesting().Of(*cls) > kMsgTextMaxDepth) {
      return SetError(err, MSGTEXT_E_DEPTH, 0, 0,
                      "%s (M%d): its messages nest more than %d levels deep", cls->name,
                      cls->number, kMsgTextMaxDepth);
    }
    return pricemsg::text::TemplateWriter(to, err).Write(*cls);
  });
}
