#include <d3dx9.h>

// Programs built against this DLL's version (37) or the newest headers (43) are both served.
extern "C" BOOL WINAPI D3DXCheckVersion(UINT d3dSdkVersion, UINT d3dxSdkVersion)
{
    if (d3dSdkVersion != D3D_SDK_VERSION)
        return FALSE;
    return d3dxSdkVersion == 37 || d3dxSdkVersion == 43;
}
