// Third-party skinned characters loaded through the drop-in D3DX and converted as a skinned-mesh
// renderer does; skipped when ../shared/samples is absent.
#include <TestDevice.h>
#include <TestPaths.h>

#include "skin_fixtures.h"

using namespace skintest;

namespace {

class SkinSamples : public vexiltest::DeviceTest {
protected:
    void convertsFaithfully(const std::string& relative)
    {
        const std::string path = vexiltest::samplesDir() + "\\" + relative;
        std::vector<LoadedSkin> skins;
        ASSERT_EQ(D3D_OK, loadSkinnedMeshes(device(), path, skins)) << path;
        ASSERT_FALSE(skins.empty()) << path << " has no skinned mesh";
        for (LoadedSkin& loaded : skins) {
            SCOPED_TRACE(relative + " container '" + loaded.name + "'");
            DWORD most = 0;
            Ref<IDirect3DIndexBuffer9> indices;
            ASSERT_EQ(D3D_OK, loaded.mesh->GetIndexBuffer(indices.out()));
            ASSERT_EQ(D3D_OK, loaded.skin->GetMaxFaceInfluences(indices.get(), loaded.mesh->GetNumFaces(), &most));
            Converted c = convert(loaded.skin.get(), loaded.mesh.get(), D3DXMESH_MANAGED | D3DXMESHOPT_VERTEXCACHE);
            ASSERT_EQ(D3D_OK, c.result);
            EXPECT_EQ(std::min<DWORD>(most, 4), c.maxFaceInfluences);
            const DWORD crowded = expectFaithfulConversion(loaded.skin.get(), loaded.mesh.get(), c);
            std::printf("%s: %lu bones, %lu faces, max face influences %lu, %lu combinations, %lu faces reduced\n",
                        loaded.name.c_str(), loaded.skin->GetNumBones(), loaded.mesh->GetNumFaces(), most,
                        c.combinationCount, crowded);
        }
    }
};

}  // namespace

TEST_F(SkinSamples, TinyConverts)
{
    VEXIL_REQUIRE_SAMPLES();
    convertsFaithfully("sdk\\Tiny\\tiny.x");
}

TEST_F(SkinSamples, WusonConverts)
{
    VEXIL_REQUIRE_SAMPLES();
    convertsFaithfully("assimp\\Testwuson.X");
}

TEST_F(SkinSamples, WeightsPastTheVertexArrayAreRefused)
{
    VEXIL_REQUIRE_SAMPLES();
    const std::string path = vexiltest::samplesDir() + "\\assimp\\malformed_skinweights_oob.x";
    std::vector<LoadedSkin> skins;
    HRESULT hr = loadSkinnedMeshes(device(), path, skins);
    if (FAILED(hr)) {
        std::printf("the loader refuses the file: 0x%08lx\n", static_cast<unsigned long>(hr));
        return;
    }
    ASSERT_FALSE(skins.empty());
    for (LoadedSkin& loaded : skins) {
        Converted c = convert(loaded.skin.get(), loaded.mesh.get(), D3DXMESH_MANAGED);
        EXPECT_EQ(D3DERR_INVALIDCALL, c.result);
        EXPECT_FALSE(c.mesh);
        std::printf("loaded, conversion refused: 0x%08lx\n", static_cast<unsigned long>(c.result));
    }
}
