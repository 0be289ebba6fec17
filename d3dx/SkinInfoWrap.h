#pragma once
#include <d3dx9.h>

// Hands the caller of the hierarchy loader a skin-info object that completes what the
// system D3DX lacks. Returns a new reference to an object wrapping `system` (which keeps its
// own reference count), or null for null.
ID3DXSkinInfo* vexilWrapSkinInfo(ID3DXSkinInfo* system);
