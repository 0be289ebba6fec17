#pragma once
#include <VexilDX9/Effect.h>

#include "DeviceFixtures.h"
#include "TestDevice.h"

#include <d3dx9.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

typedef std::vector<uint8_t> Bytes;
Bytes fileBytes(const std::string& path);
// Writes the first length bytes (all by default) to the test output folder; returns the path.
std::string writeFile(const std::string& name, const Bytes& bytes, size_t length = SIZE_MAX);
using vexiltest::expectAssertion;
using vexiltest::referencesOf;

// Slots of ID3DXEffect's methods that tests replace.
enum EffectMethod : unsigned { kGetTechnique = 12, kGetPassByName = 15, kBegin = 63 };
// Replaces one method of a real effect by giving it a copy of its method table: the effect then
// fails where Wine's D3DX never does. Returns the method replaced.
void* overrideEffectMethod(ID3DXEffect* effect, EffectMethod method, void* replacement);

// D3DXCreateEffectFromFileW as VexilDX9.dll calls it: counted, and every effect it creates is
// handed to script before the library sees it.
class EffectCreationHook {
public:
    explicit EffectCreationHook(std::function<void(ID3DXEffect*)> script = {});
    ~EffectCreationHook();
    bool ok() const { return m_patch.ok(); }
    unsigned calls() const { return m_calls; }
    // What the last call was handed.
    const D3DXMACRO* macros = nullptr;
    ID3DXInclude* include = nullptr;
    ID3DXEffectPool* pool = nullptr;

private:
    static HRESULT WINAPI hooked(IDirect3DDevice9*, const wchar_t*, const D3DXMACRO*, ID3DXInclude*, DWORD,
                                 ID3DXEffectPool*, ID3DXEffect**, ID3DXBuffer**);
    vexiltest::ImportPatch m_patch;
    std::function<void(ID3DXEffect*)> m_script;
    unsigned m_calls = 0;
};

// A real device with a two-subset quad mesh in clip space: subset 0 covers the centre
// (x, y in [-0.2, 0.2]), subset 1 a strip near the bottom, and marks.fxo loaded. The test effects
// move the mesh by pass.
class EffectTest : public vexiltest::DeviceTest {
public:
    // The holders' destructors may throw; the fixture must still match gtest's noexcept one.
    ~EffectTest() noexcept override {}

protected:
    void SetUp() override;
    void TearDown() override;

    // Handle of a parameter of marks.fxo.
    const char* handle(const char* name);
    // A failure message followed by marks.fxo's file name.
    static std::string failure(const char* text) { return std::string(text) + "test-effects\\marks.fxo"; }
    // Draws one pass inside the bracket a caller of renderPass opens.
    template <class Pass> bool drawnPass(const Technique& technique, Pass pass) {
        return drawn([&] {
            bool ok = technique.activate() && technique.begin() && technique.renderPass(m_mesh.get(), 0, pass);
            technique.end();
            return ok;
        });
    }

    static zeb::String effectPath(const char* name);
    // Clears to black, draws through fn, and returns whether it drew.
    template <class Draw> bool drawn(Draw draw) {
        testDevice().clear(D3DCOLOR_XRGB(0, 0, 0));
        device()->BeginScene();
        bool ok = draw();
        device()->EndScene();
        return ok;
    }

    static const D3DCOLOR kBlack = D3DCOLOR_XRGB(0, 0, 0), kRed = D3DCOLOR_XRGB(255, 0, 0), kBlue = D3DCOLOR_XRGB(0, 0, 255);
    static const unsigned kCentre = 32, kLeft = 16, kRight = 48, kBottomRow = 57;

    COMPtr<ID3DXMesh>::pointer m_mesh;
    Effect m_marks;
};
