#pragma once
#include <VexilDX9/Effect.h>

#include "TestDevice.h"

#include <d3dx9.h>

#include <string>

// A real device with a two-subset quad mesh in clip space: subset 0 covers the centre
// (x, y in [-0.2, 0.2]), subset 1 a strip near the bottom. The test effects move it by pass.
class EffectTest : public vexiltest::DeviceTest {
protected:
    void SetUp() override;
    void TearDown() override;

    COMPtr<IDirect3DDevice9>::pointer deviceHolder() const;
    static zeb::String effectPath(const char* name);
    // Clears to black, draws through fn, and returns whether it drew.
    template <class Draw> bool drawn(Draw draw) {
        testDevice().clear(D3DCOLOR_XRGB(0, 0, 0));
        device()->BeginScene();
        bool ok = draw();
        device()->EndScene();
        return ok;
    }

    static const D3DCOLOR kBlack = D3DCOLOR_XRGB(0, 0, 0);
    static const D3DCOLOR kRed = D3DCOLOR_XRGB(255, 0, 0);
    static const D3DCOLOR kBlue = D3DCOLOR_XRGB(0, 0, 255);
    static const D3DCOLOR kGreen = D3DCOLOR_XRGB(0, 255, 0);

    ID3DXMesh* m_mesh = nullptr;
};
