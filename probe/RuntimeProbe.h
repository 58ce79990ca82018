// What the tools and the tests read of the runtime's objects beyond the calls
// that the message classes make: the text that a CStream has collected, and
// the text and code that a CException carries. The classes only ever write
// into a CStream and throw a CException, so how to read them back is each
// runtime's own affair. Every runtime has one source file that implements
// these functions, chosen when the build is configured; a runtime for which
// there is none gets NoProbe.cpp, and then kAvailable is false and the
// functions give nothing.
#pragma once

#include <string>

#include "Runtime.h"

namespace pricemsg::probe {

// False where the build's runtime has no probe.
extern const bool kAvailable;

// Every byte appended to `stream` so far.
std::string StreamText(const CStream& stream);
// The text and the result code that `e` was thrown with.
std::string ExceptionText(const CException& e);
int ExceptionCode(const CException& e);

}  // namespace pricemsg::probe
