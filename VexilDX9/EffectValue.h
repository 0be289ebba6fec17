#pragma once
// Typed access to the parameters of a loaded effect, by parameter handle. Every function returns
// true on success and logs a failure on the "VexilDX9" logger.
#include <VexilDX9/Effect.h>
#include <VexilDX9/Export.h>
#include <zeb/Array.h>
#include <zeb/String.h>

#include <d3dx9.h>

// Handle of the top-level parameter called name; false (and a null handle) when there is none.
// Throws zeb::AssertionFailure when the effect is not loaded.
VEXILDX9_API bool getParameterHandle(const Effect& effect, const zeb::String& name, const char*& handle);

VEXILDX9_API bool setParameter(const Effect& effect, const char* const& handle, float value);
VEXILDX9_API bool setParameter(const Effect& effect, const char* const& handle, bool value);
// Stored as (x, y, z, 1).
VEXILDX9_API bool setParameter(const Effect& effect, const char* const& handle, const D3DXVECTOR3& value);
VEXILDX9_API bool setParameter(const Effect& effect, const char* const& handle, const D3DXVECTOR4& value);
VEXILDX9_API bool setParameter(const Effect& effect, const char* const& handle, const D3DXMATRIX& value);
VEXILDX9_API bool setParameter(const Effect& effect, const char* const& handle, IDirect3DBaseTexture9* const& texture);
// As many elements as the array holds; an empty array is refused.
VEXILDX9_API bool setParameter(const Effect& effect, const char* const& handle, const zeb::Array<int>& values);
VEXILDX9_API bool setParameter(const Effect& effect, const char* const& handle, const zeb::Array<D3DXMATRIX>& values);

VEXILDX9_API bool getParameter(const Effect& effect, const char* const& handle, float& value);
// True only when the stored value is exactly 1.
VEXILDX9_API bool getParameter(const Effect& effect, const char* const& handle, bool& value);
VEXILDX9_API bool getParameter(const Effect& effect, const char* const& handle, D3DXVECTOR3& value);
VEXILDX9_API bool getParameter(const Effect& effect, const char* const& handle, D3DXVECTOR4& value);
VEXILDX9_API bool getParameter(const Effect& effect, const char* const& handle, D3DXMATRIX& value);
// Only 2D textures are accepted; the caller owns the reference put in texture in both outcomes.
VEXILDX9_API bool getParameter(const Effect& effect, const char* const& handle, IDirect3DBaseTexture9*& texture);
// Reads as many elements as the array holds (size it first); an empty array is refused.
VEXILDX9_API bool getParameter(const Effect& effect, const char* const& handle, zeb::Array<int>& values);
VEXILDX9_API bool getParameter(const Effect& effect, const char* const& handle, zeb::Array<D3DXMATRIX>& values);
