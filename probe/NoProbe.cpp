// The probe of a runtime that offers no way to read its objects back.
#include "RuntimeProbe.h"

namespace pricemsg::probe {

const bool kAvailable = false;

std::string StreamText(const CStream&) { return std::string(); }
std::string ExceptionText(const CException&) { return std::string(); }
int ExceptionCode(const CException&) { return 0; }

}  // namespace pricemsg::probe
