// The viewer's command line and k2m frame lists: what is accepted, and what is refused with a
// message that names the fault.
#include <ContactSheet.h>
#include <Options.h>
#include <TestPaths.h>

#include <gtest/gtest.h>

#include <fstream>

namespace {

using vexilview::Options;

std::string parse(std::vector<std::string> arguments, Options& options) {
    return vexilview::parseOptions(arguments, options);
}

TEST(ViewerOptions, HeadlessRunTakesEveryOption) {
    Options o;
    ASSERT_EQ("", parse({"scene.x", "--textures", "t", "--k2m", "f.k2m", "--size", "320x200", "--skin", "effect",
                         "--no-textures", "--lighting", "blinn-phong", "--shadows", "--frames", "12", "--fps", "7.5",
                         "--out", "o", "--animation", "1", "--once", "--speed", "0.5"}, o));
    EXPECT_EQ("scene.x", o.scene);
    EXPECT_EQ("t", o.textureDirectory);
    EXPECT_EQ("f.k2m", o.k2mFile);
    EXPECT_EQ(320u, o.width);
    EXPECT_EQ(200u, o.height);
    EXPECT_EQ(vexilview::SkinPath::Effect, o.skin);
    EXPECT_FALSE(o.textures);
    EXPECT_EQ(vexilview::Lighting::BlinnPhong, o.lighting);
    EXPECT_TRUE(o.shadows);
    EXPECT_TRUE(o.headless());
    EXPECT_EQ(12u, o.frames);
    EXPECT_DOUBLE_EQ(7.5, o.fps);
    EXPECT_EQ("o", o.outputDirectory);
    EXPECT_EQ("1", o.animation);
    EXPECT_TRUE(o.once);
    EXPECT_DOUBLE_EQ(0.5, o.speed);
}

TEST(ViewerOptions, GalleryDrawsSmallPreviewsUnlessTold) {
    Options o;
    ASSERT_EQ("", parse({"--gallery", "models", "--out", "o", "--fps", "4", "--timeout", "5"}, o));
    EXPECT_EQ("models", o.gallery);
    EXPECT_EQ(24u, o.frames);
    EXPECT_DOUBLE_EQ(4.0, o.fps);
    EXPECT_EQ(240u, o.width);
    EXPECT_DOUBLE_EQ(5.0, o.timeout);
}

TEST(ViewerOptions, RefusedCommandLinesNameTheirFault) {
    const struct {
        std::vector<std::string> arguments;
        const char* fault;
    } cases[] = {
        {{}, "no scene file"},
        {{"a.x", "b.x"}, "one scene file only"},
        {{"a.x", "--size", "640"}, "--size"},
        {{"a.x", "--size", "0x480"}, "--size"},
        {{"a.x", "--size", "-640x480"}, "--size"},
        {{"a.x", "--skin", "gpu"}, "--skin"},
        {{"a.x", "--lighting", "phong"}, "--lighting"},
        {{"a.x", "--frames", "0", "--out", "o"}, "--frames"},
        {{"a.x", "--frames", "5"}, "go together"},
        {{"a.x", "--out", "o"}, "go together"},
        {{"a.x", "--fps", "30"}, "--fps needs --frames"},
        {{"a.x", "--frames", "5", "--out", "o", "--fps", "0"}, "--fps"},
        {{"a.x", "--textures"}, "needs a value"},
        {{"a.x", "--fast"}, "unknown option"},
        {{"a.x", "--speed", "0"}, "--speed"},
        {{"a.x", "--info", "--frames", "5", "--out", "o"}, "--info draws nothing"},
        {{"--gallery", "d"}, "--gallery needs --out"},
        {{"a.x", "--gallery", "d", "--out", "o"}, "not a scene file"},
        {{"a.x", "--timeout", "5"}, "--timeout needs --gallery"},
    };
    for (const auto& c : cases) {
        Options o;
        EXPECT_NE(std::string::npos, parse(c.arguments, o).find(c.fault)) << c.fault;
    }
}

TEST(ViewerOptions, FrameListsKeepGoodEntriesAndRefuseOthers) {
    const std::string path = vexiltest::outputDir() + "\\frames.k2m";
    const struct {
        const char* text;
        std::vector<std::string> entries;  // kept before the first refused entry
        bool good;
    } cases[] = {
        {"0:Hips\r\n\r\n1:Head \r\r\n", {"0:Hips", "1:Head"}, true},  // CRLF, and a line saved through CRLF twice
        {"", {}, true}, {"Head\n", {}, false}, {"0:Hips:Spine\n", {}, false}, {"x:Hips\n", {}, false}, {"0:\n", {}, false},
    };
    for (const auto& c : cases) {
        std::ofstream(path, std::ios::binary) << c.text;
        std::vector<std::string> entries;
        EXPECT_EQ(c.good, vexilview::readFrameList(path, entries).empty()) << c.text;
        EXPECT_EQ(c.entries, entries) << c.text;
    }
    std::vector<std::string> entries;
    EXPECT_NE("", vexilview::readFrameList(path + ".missing", entries));
}

TEST(ViewerContactSheet, EvenlySpacedFramesFromFirstToLast) {
    vexilview::ContactSheet sheet(72);
    for (unsigned frame : {1u, 7u, 14u, 20u, 27u, 33u, 40u, 46u, 53u, 59u, 66u, 72u}) EXPECT_TRUE(sheet.wants(frame)) << frame;
    EXPECT_FALSE(sheet.wants(2));
    vexilview::ContactSheet single(1);
    EXPECT_TRUE(single.wants(1));
}

}  // namespace
