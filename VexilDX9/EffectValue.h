#pragma once
// Typed access to the parameters of a loaded effect, by parameter handle. Every function returns
// true on success and logs a failure on the "VexilDX9" logger.
#include <VexilDX9/Effect.h>
#include <VexilDX9/Export.h>
#include <zeb/Array.h>
#include <zeb/Exception.h>
#include <zeb/Resource.h>
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

// An effect used, never owned: the parameter blocks and the scene objects borrow the effect that
// the application keeps.
typedef zeb::CopiedResource<zeb::PointerStorage<Effect, 3, 2>> BorrowedEffect;

// One effect parameter bound by name when it is built: its handle, a value slot for the caller
// (the library never reads it) and the effect it was bound against. A name the effect does not
// declare is a broken precondition: the parameter blocks either bind all their names or are not
// built at all.
template <class T> struct EffectValue {
    EffectValue(const BorrowedEffect& effect, const zeb::String& name) : m_handle(nullptr), m_value(), m_effect(effect) {
        ZEB_ASSERT("VexilDX9/EffectValue", 141, getParameterHandle(*(effect.get()), name, m_handle));
    }

    bool isBound() const { return m_handle != nullptr; }
    bool set(const T& value) const { return setParameter(*m_effect, m_handle, value); }
    bool get(T& value) const { return getParameter(*m_effect, m_handle, value); }

    D3DXHANDLE m_handle;
    T m_value;
    BorrowedEffect m_effect;
};
