#include "SceneSupport.h"

#include <LogCapture.h>
#include <TestDevice.h>
#include <TestPaths.h>

#include <deque>

using namespace scenetest;

namespace {

const unsigned kTop = FrameNode::noParent;

// Frames built by hand, linked the way D3DX links them.
class Tree {
public:
    D3DXFRAME* add(const char* name, D3DXFRAME* parent = nullptr) {
        m_names.emplace_back(name);
        m_frames.emplace_back();
        D3DXFRAME* f = &m_frames.back();
        f->Name = &m_names.back()[0];
        if (parent) attach(&parent->pFrameFirstChild, f);
        return f;
    }
    // Appends f to the sibling chain of first.
    D3DXFRAME* sibling(const char* name, D3DXFRAME* first) {
        D3DXFRAME* f = add(name);
        attach(&first->pFrameSibling, f);
        return f;
    }

private:
    static void attach(D3DXFRAME** slot, D3DXFRAME* f) {
        while (*slot) slot = &(*slot)->pFrameSibling;
        *slot = f;
    }
    std::deque<D3DXFRAME> m_frames;
    std::deque<std::string> m_names;
};

std::vector<std::string> strings(const zeb::Array<zeb::String>& names) {
    std::vector<std::string> result;
    for (const zeb::String& n : names) result.push_back(n.getUTF8String().c_str());
    return result;
}

std::vector<bool> renderSwitches(const FrameNodeIndexer& index) {
    std::vector<bool> result;
    for (unsigned i = 0; i < index.size(); ++i) result.push_back(index[static_cast<int>(i)].m_renderFrame);
    return result;
}

// A(B(D, E), C(F)) with A as root.
struct SmallTree {
    SmallTree() {
        a = tree.add("A");
        b = tree.add("B", a);
        c = tree.add("C", a);
        tree.add("D", b);
        tree.add("E", b);
        tree.add("F", c);
    }
    Tree tree;
    D3DXFRAME *a, *b, *c;
};

}  // namespace

TEST(FrameNodeIndexer, FlattensBreadthFirstWithParentIndices) {
    SmallTree t;
    FrameNodeIndexer index;
    ASSERT_TRUE(index.initialize(t.a));
    EXPECT_EQ(tableOf(index), (std::vector<FrameRow>{{"A", kTop}, {"B", 0}, {"C", 0}, {"D", 1}, {"E", 1}, {"F", 2}}));
    EXPECT_TRUE(indexInvariantsHold(index, t.a));
    EXPECT_EQ(&index.frameByName("E"), &index[4]);
    EXPECT_EQ(index.frameListIndex().keyAt(5), zeb::String("F"));
    const FrameNode& fresh = index[3];
    EXPECT_TRUE(fresh.m_renderFrame);
    D3DXMATRIX identity;
    D3DXMatrixIdentity(&identity);
    EXPECT_TRUE(fresh.m_combinedTransform == identity);
    EXPECT_EQ(fresh.m_containerTextures.size(), 0u);
}

TEST(FrameNodeIndexer, TopLevelIsTheRootWithItsSiblings) {
    Tree tree;
    D3DXFRAME* root = tree.add("R");
    tree.sibling("S1", root);
    D3DXFRAME* s2 = tree.sibling("S2", root);
    tree.add("Child", s2);
    FrameNodeIndexer index;
    ASSERT_TRUE(index.initialize(root));
    EXPECT_EQ(tableOf(index), (std::vector<FrameRow>{{"R", kTop}, {"S1", kTop}, {"S2", kTop}, {"Child", 2}}));
    EXPECT_TRUE(indexInvariantsHold(index, root));

    Tree single;
    ASSERT_TRUE(index.initialize(single.add("Only")));
    EXPECT_EQ(tableOf(index), (std::vector<FrameRow>{{"Only", kTop}}));
    EXPECT_EQ(index.frameListIndex().size(), 1u);
}

TEST(FrameNodeIndexer, DuplicateNamesStayInTheTableButTheFirstOwnsTheName) {
    Tree tree;
    D3DXFRAME* root = tree.add("Root");
    D3DXFRAME* left = tree.add("Twin", root);
    tree.add("Twin", root);
    tree.add("Twin", left);
    FrameNodeIndexer index;
    EXPECT_FALSE(index.initialize(root));
    EXPECT_EQ(index.size(), 4u);
    EXPECT_EQ(index.frameListIndex().size(), 2u);
    EXPECT_EQ(index.frameByName("Twin").m_frame, left);
    EXPECT_TRUE(indexInvariantsHold(index, root));
}

TEST(FrameNodeIndexer, BadPositionsAndNamesThrowAndANullRootKeepsTheTable) {
    vexiltest::LogCapture log;
    SmallTree t;
    FrameNodeIndexer index;
    EXPECT_FALSE(index.initialize(nullptr));
    EXPECT_EQ(index.size(), 0u);
    ASSERT_TRUE(index.initialize(t.a));
    EXPECT_FALSE(index.initialize(nullptr));
    EXPECT_EQ(index.size(), 6u);
    EXPECT_EQ(log.count("VexilDX9", "Null root passed to function"), 2u) << log.dump();
    EXPECT_EQ(index.frameByName("C").m_frame, t.c);

    try {
        index[6];
        FAIL() << "position 6 of 6 accepted";
    } catch (const zeb::IndexOutOfBounds& e) {
        EXPECT_EQ(e.lower(), 0);
        EXPECT_EQ(e.upper(), 5);
        EXPECT_EQ(e.index(), 6);
    }
    EXPECT_THROW(index[-1], zeb::IndexOutOfBounds);
    try {
        index.frameByName("Nobody");
        FAIL() << "unknown name accepted";
    } catch (const zeb::HashKeyMissing& e) {
        EXPECT_EQ(e.key(), zeb::String("Nobody"));
    }
    index.clear();
    EXPECT_EQ(index.size(), 0u);
    EXPECT_EQ(index.frameListIndex().size(), 0u);
}

TEST(FrameNodeIndexer, DisablingASubtreeReportsItInTableOrder) {
    vexiltest::LogCapture log;
    SmallTree t;
    Tree extra;
    t.a->pFrameSibling = extra.add("Sibling");
    FrameNodeIndexer index;
    ASSERT_TRUE(index.initialize(t.a));
    // Table: A Sibling B C D E F

    EXPECT_TRUE(strings(index.disableFrameRendering("Nobody")).empty());
    EXPECT_EQ(log.count("VexilDX9", "Cannot find frame Nobody"), 1u) << log.dump();
    EXPECT_EQ(renderSwitches(index), std::vector<bool>(7, true));

    EXPECT_EQ(strings(index.disableFrameRendering("E")), (std::vector<std::string>{"E"}));
    EXPECT_EQ(strings(index.disableFrameRendering("B")), (std::vector<std::string>{"B", "D", "E"}));
    EXPECT_EQ(renderSwitches(index), (std::vector<bool>{true, true, false, true, false, false, true}));
    // The root's subtree, not its siblings; frames already off are reported again.
    EXPECT_EQ(strings(index.disableFrameRendering("A")), (std::vector<std::string>{"A", "B", "C", "D", "E", "F"}));
    EXPECT_TRUE(index.frameByName("Sibling").m_renderFrame);
}

TEST(FrameNodeIndexer, CopiesAreDeep) {
    SmallTree t;
    FrameNodeIndexer original;
    ASSERT_TRUE(original.initialize(t.a));
    FrameNodeIndexer copy(original);
    copy.disableFrameRendering("C");
    EXPECT_TRUE(original.frameByName("F").m_renderFrame);
    EXPECT_FALSE(copy.frameByName("F").m_renderFrame);
    FrameNodeIndexer assigned;
    assigned = copy;
    copy.clear();
    EXPECT_EQ(tableOf(assigned), tableOf(original));
    EXPECT_FALSE(assigned.frameByName("C").m_renderFrame);
}

TEST(FrameNodeIndexer, ADeepChainIsFlattenedWithoutRecursion) {
    // Deep enough to overflow the stack of a recursive walk.
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
    ASSERT_EQ(index.size(), depth);
    for (unsigned i = 1; i < depth; ++i) ASSERT_EQ(index[static_cast<int>(i)].m_parentIndex, i - 1);
    EXPECT_EQ(index.frameByName("f199999").m_frame, &frames[depth - 1]);
    EXPECT_EQ(index.disableFrameRendering("f199990").size(), 10u);
}

// ---- Trees loaded by D3DX through the scene loader ------------------------------------------

namespace {

class LoadedIndex : public vexiltest::DeviceTest {
protected:
    void SetUp() override {
        DeviceTest::SetUp();
        loader.assignNamelessFrameToName("dummy_");
        loader.resetDummyFrameCounter();
    }
    SceneLoaderX loader;
};

std::string nested(unsigned depth, unsigned level = 0) {
    if (level == depth) return "";
    return frame("deep" + std::to_string(level), translation(0, 1, 0) + nested(depth, level + 1));
}

}  // namespace

TEST_F(LoadedIndex, GeneratedFixturesIndexAsTheirTextNests) {
    std::string wideBody;
    for (unsigned i = 0; i < 150; ++i) wideBody += frame(i % 3 ? "w" + std::to_string(i) : "", "");
    std::string mixed = frame("Root", frame("", frame("Leaf", "") + frame("", "")) + frame("Twin", frame("Twin", "")) +
                                          frame("Mid", quadMesh("", "") + frame("", "")));
    struct Case {
        const char* file;
        std::string text;
        bool distinctNames;
    } cases[] = {{"deep.x", xHeader() + nested(60), true},
                 {"wide.x", xHeader() + frame("Hub", wideBody), true},
                 {"mixed.x", xHeader() + mixed, false}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        loader.resetDummyFrameCounter();
        LoadedHierarchy scene(device(), writeFixture(c.file, c.text), loader);
        ASSERT_TRUE(scene.ok()) << std::hex << scene.result();
        FrameNodeIndexer index;
        EXPECT_EQ(index.initialize(scene.root()), c.distinctNames);
        EXPECT_TRUE(indexInvariantsHold(index, scene.root()));
        EXPECT_EQ(tableOf(index), expectedTableFromText(c.text, "dummy_", 0));
        index.clear();
    }
}

// ---- Files nobody here wrote --------------------------------------------------------------

namespace {

std::string sample(const char* relative) { return vexiltest::samplesDir() + "\\" + relative; }

}  // namespace

TEST_F(LoadedIndex, SdkAndAssimpSamplesIndexAsTheirFilesNest) {
    VEXIL_REQUIRE_SAMPLES();
    const char* textFiles[] = {"sdk\\Tiny\\tiny.x", "sdk\\misc\\Cube.x", "assimp\\test_cube_text.x"};
    for (const char* file : textFiles) {
        SCOPED_TRACE(file);
        loader.resetDummyFrameCounter();
        LoadedHierarchy scene(device(), sample(file), loader);
        ASSERT_TRUE(scene.ok()) << std::hex << scene.result();
        FrameNodeIndexer index;
        EXPECT_TRUE(index.initialize(scene.root()));
        EXPECT_TRUE(indexInvariantsHold(index, scene.root()));
        EXPECT_EQ(tableOf(index), expectedTableFromText(readFile(sample(file)), "dummy_", 0));
    }
}

TEST_F(LoadedIndex, TinyHasItsKnownShape) {
    VEXIL_REQUIRE_SAMPLES();
    LoadedHierarchy scene(device(), sample("sdk\\Tiny\\tiny.x"), loader);
    ASSERT_TRUE(scene.ok());
    FrameNodeIndexer index;
    ASSERT_TRUE(index.initialize(scene.root()));
    EXPECT_EQ(index.size(), 48u);
    std::vector<FrameRow> table = tableOf(index);
    EXPECT_EQ(table[0], (FrameRow{"Scene_Root", kTop}));
    EXPECT_EQ(table[1], (FrameRow{"body", 0}));
    // The skinned mesh sits in the first nameless frame of the file, a child of "body".
    const FrameNode& holder = index.frameByName("dummy_0");
    EXPECT_EQ(holder.m_parentIndex, 1u);
    D3DXMESHCONTAINER* skinned = holder.m_frame->pMeshContainer;
    ASSERT_NE(skinned, nullptr);
    ASSERT_NE(skinned->pSkinInfo, nullptr);
    EXPECT_EQ(skinned->pSkinInfo->GetNumBones(), 35u);
    for (DWORD bone = 0; bone < skinned->pSkinInfo->GetNumBones(); ++bone)
        EXPECT_TRUE(index.frameListIndex().contains(zeb::String(skinned->pSkinInfo->GetBoneName(bone))));
}

TEST_F(LoadedIndex, DwarfAndTheBinaryCubesIndexAsExpected) {
    VEXIL_REQUIRE_SAMPLES();
    // Dwarf.x is MSZIP-compressed binary; its nesting, read from the decoded file:
    const std::vector<FrameRow> dwarf = {
        {"DXCC_ROOT", kTop}, {"dummy_0", 0},       {"Drawf", 1},        {"side", 1},     {"front", 1},
        {"top", 1},          {"persp", 1},         {"Sword_new", 2},    {"backpack_new", 2}, {"Body1", 2},
        {"Armor_new", 2},    {"Face_gear_new", 2}, {"Head_new", 2}};
    const std::vector<FrameRow> cube = {{"Root", kTop}, {"Cube", 0}};
    struct Case {
        const char* file;
        const std::vector<FrameRow>& table;
    } cases[] = {{"sdk\\Dwarf\\Dwarf.x", dwarf},
                 {"assimp\\test_cube_binary.x", cube},
                 {"assimp\\test_cube_compressed.x", cube}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        loader.resetDummyFrameCounter();
        LoadedHierarchy scene(device(), sample(c.file), loader);
        ASSERT_TRUE(scene.ok()) << std::hex << scene.result();
        FrameNodeIndexer index;
        EXPECT_TRUE(index.initialize(scene.root()));
        EXPECT_TRUE(indexInvariantsHold(index, scene.root()));
        EXPECT_EQ(tableOf(index), c.table);
    }
}
