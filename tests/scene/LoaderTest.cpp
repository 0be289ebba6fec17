#include "SceneSupport.h"

#include <LogCapture.h>
#include <TestDevice.h>

using namespace scenetest;

namespace {

// The names of a frame, its children and its siblings, each frame before its children.
std::vector<std::string> namesOf(const D3DXFRAME* f, std::vector<std::string> names = {}) {
    for (; f; f = f->pFrameSibling) {
        names.push_back(f->Name);
        names = namesOf(f->pFrameFirstChild, names);
    }
    return names;
}

std::string namingFixture() {
    return writeFixture("naming.x", xHeader() + frame("Root", translation(1, 2, 3) + frame("", "") +
                                                               frame("Named", frame("", translation(0, 0, 7)))) +
                                        frame("", ""));
}

}  // namespace

TEST_F(LoaderTest, NamelessFramesAreNumberedClassWideInCreationOrder) {
    std::string path = namingFixture();
    {
        // D3DX gathers several top-level frames under a nameless root that it creates last.
        LoadedHierarchy scene(device(), path, loader);
        ASSERT_TRUE(scene.ok()) << std::hex << scene.result();
        EXPECT_EQ(namesOf(scene.root()), (std::vector<std::string>{"dummy_3", "Root", "dummy_0", "Named", "dummy_1", "dummy_2"}));
        EXPECT_FLOAT_EQ(D3DXFrameFind(scene.root(), "Root")->TransformationMatrix._43, 3.0f);
        EXPECT_FLOAT_EQ(D3DXFrameFind(scene.root(), "dummy_1")->TransformationMatrix._43, 7.0f);
    }
    {
        SceneLoaderX other(loader);  // another loader shares the counter
        LoadedHierarchy scene(device(), path, other);
        EXPECT_EQ(namesOf(scene.root()), (std::vector<std::string>{"dummy_7", "Root", "dummy_4", "Named", "dummy_5", "dummy_6"}));
    }
    loader.resetDummyFrameCounter();
    loader.assignNamelessFrameToName("n");
    LoadedHierarchy scene(device(), path, loader);
    EXPECT_EQ(namesOf(scene.root()), (std::vector<std::string>{"n3", "Root", "n0", "Named", "n1", "n2"}));
}

TEST_F(LoaderTest, CallbacksCalledDirectlyUnwindEveryFailure) {
    vexiltest::LogCapture log;
    ID3DXMesh* box = nullptr;
    ID3DXSkinInfo* skinInfo = nullptr;
    ASSERT_EQ(D3DXCreateBox(device(), 1, 1, 1, &box, nullptr), D3D_OK);
    ASSERT_EQ(D3DXCreateSkinInfoFVF(8, D3DFVF_XYZ, 1, &skinInfo), D3D_OK);
    D3DXMESHDATA mesh{};
    mesh.Type = D3DXMESHTYPE_MESH;
    mesh.pMesh = box;
    D3DXMATERIAL materials[2] = {};
    materials[0].MatD3D.Diffuse = {0.2f, 0.4f, 0.6f, 1.0f};
    materials[0].MatD3D.Ambient = {0, 0, 0, 1};
    materials[0].pTextureFilename = const_cast<char*>("maps\\wood/oak.bmp");  // only the backslash separates
    std::vector<DWORD> adjacency(36);
    box->GenerateAdjacency(0.0f, adjacency.data());
    D3DXMESHCONTAINER* c = nullptr;
    auto create = [&](const char* name) {
        c = nullptr;
        return loader.CreateMeshContainer(name, &mesh, materials, nullptr, 2, adjacency.data(), skinInfo, &c);
    };
    AllocationSpy spy;

    unsigned before = spy.allocations();
    ASSERT_EQ(create("Box"), S_OK);
    const unsigned steps = spy.allocations() - before;
    EXPECT_EQ(steps, 6u);  // container, name, materials, two texture names, adjacency
    EXPECT_EQ(referencesOf(box), 2u);
    EXPECT_EQ(referencesOf(skinInfo), 2u);
    EXPECT_TRUE(c->pMaterials[0].MatD3D.Ambient.b == 0.6f && c->pMaterials[0].MatD3D.Power == 1.5f) << "diffuse, soft highlight";
    EXPECT_STREQ(c->pMaterials[0].pTextureFilename, "C:\\scene\\wood/oak.bmp");
    EXPECT_STREQ(c->pMaterials[1].pTextureFilename, "");
    EXPECT_EQ(std::vector<DWORD>(c->pAdjacency, c->pAdjacency + 36), adjacency);
    EXPECT_EQ(log.count("VexilDX9", "Copying adjacency data numFaces =12"), 1u) << log.dump();
    EXPECT_EQ(loader.DestroyMeshContainer(c), S_OK);

    for (unsigned n = 1; n <= steps; ++n) {
        spy.failAllocation(n);
        HRESULT hr = create("Box");
        spy.failAllocation(0);
        if (n == 4 || n == 5) {  // a texture name that cannot be copied stays null; the load goes on
            ASSERT_EQ(hr, S_OK);
            EXPECT_EQ(c->pMaterials[n - 4].pTextureFilename, nullptr);
            loader.DestroyMeshContainer(c);
        } else {
            EXPECT_EQ(hr, E_OUTOFMEMORY) << "allocation " << n;
            EXPECT_EQ(c, nullptr);
        }
        EXPECT_EQ(spy.liveBlocks(), 0u) << "allocation " << n;
    }
    spy.failAllocation(2);
    ASSERT_EQ(create(""), S_OK);  // a nameless container does without its empty name
    loader.DestroyMeshContainer(c);

    mesh.Type = static_cast<D3DXMESHDATATYPE>(0x7F);
    EXPECT_EQ(create("Odd"), E_INVALIDARG);
    EXPECT_EQ(loader.DestroyMeshContainer(nullptr), E_INVALIDARG);
    mesh.Type = D3DXMESHTYPE_PATCHMESH;  // only referenced, so any interface stands in for one
    ASSERT_EQ(create("Patch"), S_OK);
    EXPECT_EQ(c->pAdjacency, nullptr);
    loader.DestroyMeshContainer(c);
    ASSERT_EQ(loader.CreateMeshContainer("", nullptr, nullptr, nullptr, 0, nullptr, skinInfo, &c), S_OK);
    EXPECT_EQ(c->pSkinInfo, skinInfo);
    loader.DestroyMeshContainer(c);

    D3DXFRAME* f = nullptr;
    for (unsigned n : {1u, 2u}) {
        spy.failAllocation(n);
        EXPECT_EQ(loader.CreateFrame("A", &f), E_OUTOFMEMORY);
    }
    spy.failAllocation(0);
    EXPECT_EQ(log.count("VexilDX9", "Unable to allocate anymore D3DXFRAME object"), 1u);
    EXPECT_EQ(log.count("VexilDX9", "Cannot create frame name"), 1u);
    ASSERT_EQ(loader.CreateFrame(nullptr, &f), S_OK);
    EXPECT_STREQ(f->Name, "dummy_0");
    EXPECT_EQ(f->TransformationMatrix._44, 0.0f);  // all zeros until D3DX fills it
    loader.DestroyFrame(f);

    EXPECT_EQ(spy.liveBlocks(), 0u);
    EXPECT_EQ(skinInfo->Release(), 0u);
    EXPECT_EQ(box->Release(), 0u);
}
