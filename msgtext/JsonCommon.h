// What the JSON writer and reader share: the keys and texts of the form,
// the JSON pointer of the value at hand, and input shown in reasons.
// Internal to libpricemsg_text.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "MsgJson.h"
#include "TextCommon.h"

namespace pricemsg::msgjson {

using schema::ClassInfo;
using schema::FieldInfo;
using schema::Kind;

// The keys of a message object that are not fields.
inline constexpr const char* kClassKey = "class";
inline constexpr const char* kNumberKey = "number";
// The key of the object that holds a text that is not valid UTF-8.
inline constexpr const char* kHexKey = "hex";

// The doubles that JSON numbers cannot carry, as texts.
inline constexpr const char* kNaN = "NaN";
inline constexpr const char* kMinusNaN = "-NaN";
inline constexpr const char* kInfinity = "Infinity";
inline constexpr const char* kMinusInfinity = "-Infinity";

// Input shown in a reason: bytes outside printable ASCII as \xHH, at most
// `max` bytes of it from its start, and "..." where it was cut.
std::string Shown(std::string_view s, size_t max = 80);

// A JSON pointer to the value being written or read, grown and cut back as
// the walk goes down and up.
class Pointer {
 public:
  // Gives the length to cut back to.
  size_t Push(std::string_view key);
  size_t Push(size_t index) { return Push(std::to_string(index)); }
  void Pop(size_t size) { text_.resize(size); }
  size_t Size() const { return text_.size(); }
  // As a reason shows it: the outer value is "/", and a long pointer keeps
  // its end, where the value is.
  std::string ForReason() const;

 private:
  std::string text_;
};

}  // namespace pricemsg::msgjson
