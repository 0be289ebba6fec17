#include <VexilDX9/LogD3D.h>
#include <VexilDX9/SiblingLog.h>

namespace VexilDX9 {

// The sibling library's helper is the one implementation, so both behave alike.
long logD3DFunction(LoggerGetter getter, const zeb::String& text, long hr, bool echo) {
    return ::logD3DFunction(getter, text, hr, echo);
}

}  // namespace VexilDX9
