// CException: the one exception of the message classes.
//
// It keeps a copy of its text in itself, since the text it is built from is
// usually gone before the exception is caught, and it owns nothing: it is
// thrown by value and has no destructor to run. A longer text is cut at
// kMaxText bytes.
#pragma once

class CException {
 public:
  static constexpr int kMaxText = 255;

  CException(const char* text, int code);

  const char* GetText() const { return text_; }
  int GetCode() const { return code_; }

 private:
  char text_[kMaxText + 1];
  int code_;
};
