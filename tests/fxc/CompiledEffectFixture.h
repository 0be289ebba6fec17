#pragma once
#include "Compiler.h"
#include "TestDevice.h"

#include <d3dx9.h>

#include <functional>
#include <string>

// A real device and effects compiled in-process from source text, loaded by D3DX from memory.
class CompiledEffectTest : public vexiltest::DeviceTest {
protected:
    void TearDown() override;

    // Compiles and loads; fails the test (and returns null) when either step fails.
    ID3DXEffect* load(const std::string& source, ID3DXEffectPool* pool = nullptr);
    // The same for a source file of tests/fxc/fixtures.
    ID3DXEffect* loadFixture(const char* name);
    // Draws a clip-space quad over [-0.5, 0.5] through every pass of the effect's first technique.
    void drawQuad(ID3DXEffect* effect);
    // Runs read inside pass 0 of the technique, with the pass's state on the device.
    void inPass(ID3DXEffect* effect, D3DXHANDLE technique, const std::function<void()>& read);

    static const unsigned kCentre = 32;

private:
    ID3DXEffect* m_effects[4] = {};
};

std::string annotationString(ID3DXEffect* effect, D3DXHANDLE object, const char* name);
