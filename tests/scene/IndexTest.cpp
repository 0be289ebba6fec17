#include "SceneSupport.h"

#include "../device/DeviceFixtures.h"

#include <VexilDX9/MeshManagerd3dx9.h>

#include <LogCapture.h>
#include <TestDevice.h>

#include <deque>

using namespace scenetest;

namespace {

const unsigned kTop = FrameNode::noParent;

// Frames linked by hand the way D3DX links them.
class Tree {
public:
    D3DXFRAME* add(const char* name, D3DXFRAME** chain = nullptr) {
        m_frames.emplace_back();
        m_frames.back().Name = const_cast<char*>(name);  // only read
        while (chain && *chain) chain = &(*chain)->pFrameSibling;
        if (chain) *chain = &m_frames.back();
        return &m_frames.back();
    }

private:
    std::deque<D3DXFRAME> m_frames;
};

std::vector<std::string> strings(const zeb::Array<zeb::String>& names) {
    std::vector<std::string> result;
    for (const zeb::String& n : names) result.push_back(n.getUTF8String().c_str());
    return result;
}

}  // namespace

TEST(FrameNodeIndexer, BuildsTheBreadthFirstTableAndSwitchesSubtreesOff) {
    vexiltest::LogCapture log;
    Tree t;  // A(B(D, E), C(F)), then the root's sibling S, and a second "E" under F
    D3DXFRAME* a = t.add("A");
    D3DXFRAME* b = t.add("B", &a->pFrameFirstChild);
    D3DXFRAME* c = t.add("C", &a->pFrameFirstChild);
    t.add("D", &b->pFrameFirstChild);
    D3DXFRAME* e = t.add("E", &b->pFrameFirstChild);
    D3DXFRAME* f = t.add("F", &c->pFrameFirstChild);
    t.add("S", &a->pFrameSibling);
    FrameNodeIndexer index;
    ASSERT_TRUE(index.initialize(a));
    EXPECT_EQ(tableOf(index), (std::vector<FrameRow>{{"A", kTop}, {"S", kTop}, {"B", 0}, {"C", 0}, {"D", 2}, {"E", 2}, {"F", 3}}));

    EXPECT_TRUE(index.disableFrameRendering("Nobody").empty());
    EXPECT_EQ(log.count("VexilDX9", "Cannot find frame Nobody"), 1u) << log.dump();
    EXPECT_EQ(strings(index.disableFrameRendering("E")), (std::vector<std::string>{"E"}));
    FrameNodeIndexer copy(index);
    // The root's subtree, not its siblings; frames already off are reported again.
    EXPECT_EQ(strings(copy.disableFrameRendering("A")), (std::vector<std::string>{"A", "B", "C", "D", "E", "F"}));
    EXPECT_TRUE(copy.frameByName("S").m_renderFrame);
    EXPECT_FALSE(copy.frameByName("F").m_renderFrame) << "a grandchild is switched off too";
    EXPECT_TRUE(index.frameByName("B").m_renderFrame) << "copies are deep";

    t.add("E", &f->pFrameFirstChild);
    EXPECT_FALSE(index.initialize(a)) << "duplicate names";
    EXPECT_EQ(tableOf(index),
              (std::vector<FrameRow>{{"A", kTop}, {"S", kTop}, {"B", 0}, {"C", 0}, {"D", 2}, {"E", 2}, {"F", 3}, {"E", 6}}));
    EXPECT_EQ(index.frameByName("E").m_frame, e) << "the first of a name wins";
    EXPECT_TRUE(index.frameByName("E").m_renderFrame) << "a rebuilt table starts switched on";

    EXPECT_FALSE(index.initialize(nullptr));
    EXPECT_EQ(index.size(), 8u) << "a null root keeps the table";
    EXPECT_EQ(log.count("VexilDX9", "Null root passed to function"), 1u);
    EXPECT_THROW(index[8], zeb::IndexOutOfBounds);
    EXPECT_THROW(index[-1], zeb::IndexOutOfBounds);
    EXPECT_THROW(index.frameByName("Nobody"), zeb::HashKeyMissing);
}

TEST(FrameNodeIndexer, FlattensAChainTooDeepForRecursion) {
    const unsigned depth = 200000;
    std::vector<D3DXFRAME> frames(depth);
    std::vector<std::string> names(depth);
    for (unsigned i = 0; i < depth; ++i) {
        names[i] = "f" + std::to_string(i);
        frames[i].Name = &names[i][0];
        if (i) frames[i - 1].pFrameFirstChild = &frames[i];
    }
    FrameNodeIndexer index;
    ASSERT_TRUE(index.initialize(&frames[0]));
    for (unsigned i = 1; i < depth; ++i) ASSERT_EQ(index[int(i)].m_parentIndex, i - 1);
    EXPECT_EQ(index.disableFrameRendering("f199990").size(), 10u);
}

// ---- The texture index built on a loaded tree -------------------------------------------------

namespace {

std::vector<unsigned> idsOf(const MeshContainerTuple& tuple) {
    std::vector<unsigned> ids;
    for (unsigned i = 0; i < tuple.numAttribute(); ++i) ids.push_back(tuple[int(i)]);
    return ids;
}

}  // namespace

TEST_F(LoaderTest, TexturesGroupSubsetsWithTheIntendedMerges) {
    vexiltest::LogCapture log;
    std::string two = materialList({material(1, 0, 0, 1, 1, "a.bmp"), material(0, 1, 0, 1, 1, "")}, 0, 1);
    std::string three = materialList({material(1, 1, 1, 1, 1, ""), material(1, 1, 1, 1, 1, "a.bmp"),
                                      material(1, 1, 1, 1, 1, "")}, 1, 2);
    std::string text = xHeader() + frame("Root", frame("Pair", quadMesh("", two) + quadMesh("", three)) +
                                                     frame("Twin", quadMesh("Left", two)) +
                                                     frame("Twin", quadMesh("Right", two) + quadMesh("Right", two)));
    LoadedHierarchy scene(device(), writeFixture("tuples.x", text), loader);
    ASSERT_TRUE(scene.ok()) << std::hex << scene.result();
    MeshManagerD3DX9 frames;  // the texture index as the renderer walks it
    frames.setDevice(device());
    frames.initialize(scene.root());
    EXPECT_EQ(tableOf(frames.frameIndex()), (std::vector<FrameRow>{{"Root", kTop}, {"Pair", 0}, {"Twin", 0}, {"Twin", 0}}));
    zeb::OrderedHashTable<zeb::String, TextureTuple> table = frames.textureTable();
    const zeb::String a("C:\\scene\\a.bmp");
    ASSERT_EQ(table.size(), 2u);
    EXPECT_EQ(table.keyAt(0), a);

    // Both nameless containers of "Pair" share one tuple that draws with the first container.
    std::vector<D3DXMESHCONTAINER*> pair = containersOf(D3DXFrameFind(scene.root(), "Pair"));
    const FrameTuple& pairTuple = table[a].frameTable()[zeb::String("Pair")];
    ASSERT_EQ(pairTuple.childMeshTable().size(), 1u);
    const MeshContainerTuple& merged = pairTuple.childMeshTable().valueAt(0);
    EXPECT_EQ(merged.meshContainer(), pair[0]);
    EXPECT_EQ(idsOf(merged), (std::vector<unsigned>{0, 1}));
    // Same-named containers of one frame merge too; a repeated id is reported by its position.
    const FrameTuple& twin = table[zeb::String("NULL")].frameTable()[zeb::String("Twin")];
    EXPECT_EQ(twin.frame(), &frames.frameByName("Twin"));  // the first "Twin" keeps the tuple
    ASSERT_EQ(twin.childMeshTable().size(), 2u);
    EXPECT_EQ(idsOf(twin.childMeshTable()[zeb::String("Right")]), (std::vector<unsigned>{1}));
    EXPECT_EQ(log.count("VexilDX9", "Duplicate attrib 0 for mesh Right"), 2u) << log.dump();
    EXPECT_EQ(log.count("VexilDX9", "Attribute exist 1"), 1u);

    frames.frameByName("Pair").m_renderFrame = false;
    EXPECT_FALSE(pairTuple.drawFrame());
    EXPECT_TRUE(twin.drawFrame());
    FrameTuple unset;
    vexiltest::expectAssertion([&] { unset.drawFrame(); }, 0, "m_ownerFrame", "VexilDX9/FrameTuple");

    COMPtr<IDirect3DTexture9>::pointer texture;
    ASSERT_EQ(device()->CreateTexture(4, 4, 1, 0, D3DFMT_A8R8G8B8, D3DPOOL_MANAGED, texture.receive(), nullptr), D3D_OK);
    table[a].setTexture(texture);
    TextureTuple copy(table[a]);
    EXPECT_EQ(copy.texture(), texture.get());
    EXPECT_EQ(referencesOf(texture.get()), 3u);
    copy.cleanup();
    table.clear();
    EXPECT_EQ(referencesOf(texture.get()), 1u);
}
