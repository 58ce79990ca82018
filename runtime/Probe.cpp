// The probe of the stand-in runtime.
#include "RuntimeProbe.h"

namespace pricemsg::probe {

const bool kAvailable = true;

std::string StreamText(const CStream& stream) {
  return std::string(stream.ToStr(), static_cast<size_t>(stream.GetSize()));
}
std::string ExceptionText(const CException& e) { return e.GetText(); }
int ExceptionCode(const CException& e) { return e.GetCode(); }

}  // namespace pricemsg::probe
