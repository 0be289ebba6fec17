#include "SceneSupport.h"

#include <VexilDX9/TextureTuple.h>

#include <LogCapture.h>
#include <TestDevice.h>

#include <cstring>

using namespace scenetest;

namespace {

std::vector<unsigned> idsOf(const MeshContainerTuple& tuple) {
    std::vector<unsigned> ids;
    for (unsigned i = 0; i < tuple.numAttribute(); ++i) ids.push_back(tuple[static_cast<int>(i)]);
    return ids;
}

MeshContainerTuple containerTuple(D3DXMESHCONTAINER* container, std::vector<unsigned> ids) {
    MeshContainerTuple tuple;
    tuple.setMeshContainer(container);
    for (unsigned id : ids) tuple.addAttributeId(id);
    return tuple;
}

FrameTuple frameTuple(FrameNode* node, const MeshContainerTuple& container) {
    FrameTuple tuple;
    tuple.setFrame(node);
    tuple.addMeshContainer(container);
    return tuple;
}

struct NamedContainer : D3DXMESHCONTAINER {
    explicit NamedContainer(const char* name) : D3DXMESHCONTAINER() { Name = const_cast<char*>(name); }
};

ULONG references(IUnknown* object) {
    object->AddRef();
    return object->Release();
}

}  // namespace

TEST(MeshTuples, AttributeIdsAreKeptOnceInOrderOfFirstAddition) {
    vexiltest::LogCapture log;
    NamedContainer m("M");
    MeshContainerTuple tuple = containerTuple(&m, {3, 1});
    EXPECT_FALSE(tuple.addAttributeId(3));
    EXPECT_TRUE(tuple.addAttributeId(0));
    EXPECT_EQ(idsOf(tuple), (std::vector<unsigned>{3, 1, 0}));
    EXPECT_EQ(log.count("VexilDX9", "Attribute exist 3"), 1u) << log.dump();
    EXPECT_EQ(tuple.name(), zeb::String("M"));
    EXPECT_EQ(tuple.meshContainer(), &m);
}

TEST(MeshTuples, AContainerMetAgainMergesItsIdsAndNamesTheDuplicatePosition) {
    vexiltest::LogCapture log;
    NamedContainer first("M"), second("M");
    FrameNode node;
    FrameTuple tuple = frameTuple(&node, containerTuple(&first, {1, 2}));
    EXPECT_TRUE(tuple.addMeshContainer(containerTuple(&second, {2, 5})));
    ASSERT_EQ(tuple.childMeshTable().size(), 1u);
    const MeshContainerTuple& stored = tuple.childMeshTable().valueAt(0);
    EXPECT_EQ(idsOf(stored), (std::vector<unsigned>{1, 2, 5}));
    EXPECT_EQ(stored.meshContainer(), &first);
    // The position in the incoming list, not the id.
    EXPECT_EQ(log.count("VexilDX9", "Duplicate attrib 0 for mesh M"), 1u) << log.dump();
    EXPECT_EQ(log.count("VexilDX9", "Duplicate attrib"), 1u);
}

TEST(MeshTuples, FramesOfOneNameMergeIntoTheFirstFrameNode) {
    D3DXFRAME frameA{}, frameB{};
    frameA.Name = frameB.Name = const_cast<char*>("Twin");
    FrameNode nodeA, nodeB;
    nodeA.m_frame = &frameA;
    nodeB.m_frame = &frameB;
    NamedContainer a("A"), b("B");
    TextureTuple texture;
    EXPECT_TRUE(texture.addFrame(frameTuple(&nodeA, containerTuple(&a, {0}))));
    EXPECT_TRUE(texture.addFrame(frameTuple(&nodeB, containerTuple(&b, {1}))));
    EXPECT_TRUE(texture.addFrame(frameTuple(&nodeB, containerTuple(&a, {2}))));
    ASSERT_EQ(texture.frameTable().size(), 1u);
    const FrameTuple& twin = texture.frameTable().valueAt(0);
    EXPECT_EQ(twin.frame(), &nodeA);
    ASSERT_EQ(twin.childMeshTable().size(), 2u);
    EXPECT_EQ(idsOf(twin.childMeshTable()[zeb::String("A")]), (std::vector<unsigned>{0, 2}));
    EXPECT_EQ(idsOf(twin.childMeshTable()[zeb::String("B")]), (std::vector<unsigned>{1}));
    texture.cleanup();
    EXPECT_EQ(texture.frameTable().size(), 0u);
}

TEST(MeshTuples, DrawFrameFollowsTheRenderSwitchAndNeedsAFrame) {
    FrameTuple tuple;
    try {
        tuple.drawFrame();
        FAIL() << "a frame tuple without a frame answered";
    } catch (const zeb::AssertionFailure& failure) {
        EXPECT_STREQ(failure.file(), "VexilDX9/FrameTuple");
        EXPECT_STREQ(failure.expression(), "m_frame");
    }
    FrameNode node;
    D3DXMatrixTranslation(&node.m_combinedTransform, 1, 2, 3);
    tuple.setFrame(&node);
    EXPECT_TRUE(tuple.drawFrame());
    node.m_renderFrame = false;
    EXPECT_FALSE(tuple.drawFrame());
    EXPECT_EQ(&tuple.transformMatrix(), &node.m_combinedTransform);
    EXPECT_EQ(&tuple.inverseTransformMatrix(), &node.m_inverseTransform);
    EXPECT_EQ(&tuple.invTransposeTransformMatrix(), &node.m_invTransposeTransform);
}

// ---- Texture handles ------------------------------------------------------------------------

class TextureHandles : public vexiltest::DeviceTest {
protected:
    void SetUp() override {
        DeviceTest::SetUp();
        ASSERT_EQ(device()->CreateTexture(4, 4, 1, 0, D3DFMT_A8R8G8B8, D3DPOOL_MANAGED, &created, nullptr), D3D_OK);
    }
    void TearDown() override {
        if (created) created->Release();
        DeviceTest::TearDown();
    }
    // Hands the created texture to a holder of the test's own.
    IDirect3DTexture9* adopt() {
        IDirect3DTexture9* texture = created;
        created = nullptr;
        return texture;
    }
    IDirect3DTexture9* created = nullptr;
};

TEST_F(TextureHandles, TuplesAndNodesTakeAndReturnTheirOwnReferences) {
    COMPtr<IDirect3DTexture9>::pointer holder(adopt());
    IDirect3DTexture9* texture = holder.get();
    {
        TextureTuple tuple;
        tuple.setTexture(holder);
        EXPECT_EQ(tuple.texture(), texture);
        EXPECT_EQ(references(texture), 2u);
        tuple.setTexture(holder);
        EXPECT_EQ(references(texture), 2u);
        TextureTuple copy(tuple);
        EXPECT_EQ(references(texture), 3u);
        copy.cleanup();
        EXPECT_EQ(copy.texture(), nullptr);
        EXPECT_EQ(references(texture), 2u);
    }
    EXPECT_EQ(references(texture), 1u);

    FrameNode node;
    D3DXFRAME frame{};
    node.m_frame = &frame;
    MeshContainerTexture textures;
    textures.m_textureList.append(holder);
    textures.m_textureList.append(COMPtr<IDirect3DTexture9>::pointer());
    node.m_containerTextures.append(textures);
    node.m_containerTextures.append(textures);
    EXPECT_EQ(references(texture), 4u);
    {
        FrameNode copy(node);
        EXPECT_EQ(references(texture), 6u);
        FrameNode assigned;
        assigned = copy;
        EXPECT_EQ(references(texture), 8u);
    }
    EXPECT_EQ(references(texture), 4u);
    node.cleanup();
    EXPECT_EQ(node.m_frame, nullptr);
    EXPECT_EQ(node.m_containerTextures.size(), 0u);
    textures.m_textureList.clear();
    EXPECT_EQ(references(texture), 1u);
}

// ---- A texture index over a loaded tree -----------------------------------------------------

namespace {

// Groups every subset of every rigid container by its texture, the way the renderer walks them.
zeb::OrderedHashTable<zeb::String, TextureTuple> textureIndex(FrameNodeIndexer& frames) {
    zeb::OrderedHashTable<zeb::String, TextureTuple> table;
    for (unsigned i = 0; i < frames.size(); ++i) {
        FrameNode& node = frames[static_cast<int>(i)];
        for (D3DXMESHCONTAINER* c : containersOf(node.m_frame)) {
            for (DWORD a = 0; a < c->NumMaterials; ++a) {
                const char* file = c->pMaterials[a].pTextureFilename;
                zeb::String key(file && *file ? file : "NULL");
                FrameTuple tuple = frameTuple(&node, containerTuple(c, {a}));
                if (TextureTuple* found = table.find(key)) {
                    found->addFrame(tuple);
                } else {
                    TextureTuple fresh;
                    fresh.addFrame(tuple);
                    table.insert(key, fresh);
                }
            }
        }
    }
    return table;
}

}  // namespace

TEST_F(TextureHandles, LoadedContainersIndexByTextureWithTheIntendedMerges) {
    SceneLoaderX loader;
    loader.setTextureFileRootDirectory("T");
    loader.assignNamelessFrameToName("dummy_");
    loader.resetDummyFrameCounter();
    std::string twoMaterials = materialList({material(1, 0, 0, 1, 1, "a.bmp"), material(0, 1, 0, 1, 1, "")}, 0, 1);
    std::string text = xHeader() +
                       frame("Root", frame("Pair", quadMesh("", twoMaterials) +
                                                       quadMesh("", materialList({material(1, 1, 1, 1, 1, ""),
                                                                                  material(1, 1, 1, 1, 1, "b.bmp"),
                                                                                  material(1, 1, 1, 1, 1, "a.bmp")},
                                                                                 1, 2))) +
                                         frame("Twin", quadMesh("Left", twoMaterials)) +
                                         frame("Twin", quadMesh("Right", twoMaterials)));
    LoadedHierarchy scene(device(), writeFixture("tuples.x", text), loader);
    ASSERT_TRUE(scene.ok()) << std::hex << scene.result();
    FrameNodeIndexer frames;
    EXPECT_FALSE(frames.initialize(scene.root()));  // the twins share a name
    zeb::OrderedHashTable<zeb::String, TextureTuple> table = textureIndex(frames);

    ASSERT_EQ(table.size(), 3u);
    EXPECT_EQ(table.keyAt(0), zeb::String("T\\a.bmp"));
    EXPECT_EQ(table.keyAt(1), zeb::String("NULL"));
    EXPECT_EQ(table.keyAt(2), zeb::String("T\\b.bmp"));

    // Both nameless containers of "Pair" end up in one tuple that draws with the first mesh.
    D3DXFRAME* pair = findFrame(scene.root(), "Pair");
    std::vector<D3DXMESHCONTAINER*> pairContainers = containersOf(pair);
    ASSERT_EQ(pairContainers.size(), 2u);
    const FrameTuple& pairInA = table[zeb::String("T\\a.bmp")].frameTable()[zeb::String("Pair")];
    ASSERT_EQ(pairInA.childMeshTable().size(), 1u);
    const MeshContainerTuple& merged = pairInA.childMeshTable()[zeb::String("")];
    EXPECT_EQ(merged.meshContainer(), pairContainers[0]);
    EXPECT_EQ(merged.mesh(), pairContainers[0]->MeshData.pMesh);
    EXPECT_EQ(idsOf(merged), (std::vector<unsigned>{0, 2}));
    EXPECT_EQ(idsOf(table[zeb::String("NULL")].frameTable()[zeb::String("Pair")].childMeshTable()[zeb::String("")]),
              (std::vector<unsigned>{1, 0}));

    // The two frames named "Twin" become one frame tuple on the first node, with both containers.
    const FrameTuple& twin = table[zeb::String("NULL")].frameTable()[zeb::String("Twin")];
    EXPECT_EQ(twin.frame(), &frames.frameByName("Twin"));
    EXPECT_EQ(twin.childMeshTable().size(), 2u);
    EXPECT_EQ(std::strcmp(twin.childMeshTable().valueAt(1).material()[1].pTextureFilename, ""), 0);

    // Switching a frame off keeps it in the index; drawing asks the switch.
    frames.disableFrameRendering("Pair");
    EXPECT_FALSE(pairInA.drawFrame());
    EXPECT_TRUE(twin.drawFrame());
    frames.clear();
}
