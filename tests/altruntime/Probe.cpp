// The probe of the altkyt runtime (tests/altruntime).
#include "RuntimeProbe.h"

namespace pricemsg::probe {

const bool kAvailable = true;

std::string StreamText(const CStream& stream) {
  return std::string(stream.Collected(), stream.Length());
}
std::string ExceptionText(const CException& e) { return e.Reason(); }
int ExceptionCode(const CException& e) { return e.Result(); }

}  // namespace pricemsg::probe
