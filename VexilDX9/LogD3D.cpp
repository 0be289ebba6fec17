#include <VexilDX9/LogD3D.h>
#include <VexilDX9/SiblingLog.h>

#include <windows.h>
#include <dxerr9.h>

namespace {

long logFailedCall(VexilDX9::LoggerGetter getter, const zeb::String& text, long hr, bool echo) {
    zeb::String message(text);
    message.append(" ").append(zeb::String(DXGetErrorString9W(static_cast<HRESULT>(hr))));
    ZEB_LOG(getter, 3, 14, message);
    if (echo) zeb::cout << message << 0;
    return hr;
}

}  // namespace

namespace VexilDX9 {

long logD3DFunction(LoggerGetter getter, const zeb::String& text, long hr, bool echo) {
    return logFailedCall(getter, text, hr, echo);
}

}  // namespace VexilDX9

long logD3DFunction(VexilDX9::LoggerGetter getter, const zeb::String& text, long hr, bool echo) {
    return logFailedCall(getter, text, hr, echo);
}
