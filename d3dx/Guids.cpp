// The interface identifiers of the D3DX headers, defined once for this DLL.
#include <initguid.h>

#include <d3dx9.h>
