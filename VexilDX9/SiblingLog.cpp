#include <VexilDX9/SiblingLog.h>

#include <windows.h>
#include <dxerr9.h>

long logD3DFunction(VexilDX9::LoggerGetter getter, const zeb::String& text, long hr, bool echo) {
    zeb::String message(text);
    message.append(" ").append(zeb::String(DXGetErrorString9W(static_cast<HRESULT>(hr))));
    ZEB_LOG(getter, 3, 14, message);
    if (echo) zeb::cout << message << 0;
    return hr;
}
