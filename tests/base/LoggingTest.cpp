#include <VexilDX9/LogD3D.h>
#include <VexilDX9/SiblingLog.h>
#include <zeb/Logger.h>

#include "LogCapture.h"

#include <d3d9.h>
#include <gtest/gtest.h>

namespace {

ZEB_FILE_LOGGER(ruleLogger, "test.rule")
ZEB_FILE_LOGGER(lazyLogger, "test.lazy")
ZEB_FILE_LOGGER(d3dLogger, "test.d3d")

void logAllPriorities() {
    ZEB_TRACE(ruleLogger, "Rule::logAllPriorities");
    for (int p = 1; p <= 4; ++p) ZEB_LOG(ruleLogger, p, 10 + p, "priority " + p);
}

std::string consoleText;
void captureConsole(const zeb::String& text, void*) { consoleText += text.getUTF8String().c_str(); }

}  // namespace

TEST(Logging, GlobalThresholdAdmitsEqualityLoggerThresholdDoesNot) {
    vexiltest::LogCapture capture(4);
    zeb::LogFactory::getLogger("test.rule")->setPriority(0);
    logAllPriorities();
    ASSERT_EQ(1u, capture.entries().size()) << capture.dump();
    EXPECT_TRUE(capture.contains("test.rule", 4, "14 priority 4"));

    capture.clear();
    zeb::LogFactory::setPriority(0);
    zeb::LogFactory::getLogger("test.rule")->setPriority(1);
    logAllPriorities();
    EXPECT_EQ(0u, capture.count("test.rule", "logAllPriorities")) << "traces are priority 1";
    EXPECT_TRUE(capture.contains("test.rule", 2, "12 priority 2"));
    EXPECT_EQ(3u, capture.entries().size()) << capture.dump();

    capture.clear();
    zeb::LogFactory::getLogger("test.rule")->setPriority(0);
    logAllPriorities();
    EXPECT_EQ(2u, capture.count("test.rule", "Rule::logAllPriorities")) << "entry and exit";
}

TEST(Logging, LoggersAreCreatedOnFirstEnabledUseAndShared) {
    vexiltest::LogCapture capture(3);
    EXPECT_EQ(nullptr, lazyLogger(zeb::LoggerPriority::LOGGER_PRIORITY_INFO));
    EXPECT_EQ(nullptr, lazyLoggerPointer) << "a filtered message does not create the logger";
    zeb::Logger* logger = lazyLogger(zeb::LoggerPriority::LOGGER_PRIORITY_FAILURE);
    ASSERT_NE(nullptr, logger);
    EXPECT_EQ(logger, zeb::LogFactory::getLogger("test.lazy"));
    zeb::Logger* again = nullptr;
    zeb::LogFactory::createLogger("test.lazy", again);
    EXPECT_EQ(logger, again);
}

TEST(Logging, FailedD3DCallIsLoggedWithTheResultName) {
    vexiltest::LogCapture capture;
    consoleText.clear();
    zeb::cout.setWriter(captureConsole, nullptr);
    EXPECT_EQ(D3DERR_NOTAVAILABLE, logD3DFunction(d3dLogger, "IDirect3D9::CreateDevice", D3DERR_NOTAVAILABLE, true));
    EXPECT_TRUE(capture.contains("test.d3d", 3, "14 IDirect3D9::CreateDevice D3DERR_NOTAVAILABLE"));
    capture.clear();
    zeb::LogFactory::setPriority(4);
    EXPECT_EQ(E_FAIL, VexilDX9::logD3DFunction(d3dLogger, "Present", E_FAIL, false)) << "result unchanged when silent";
    EXPECT_TRUE(capture.entries().empty());
    EXPECT_EQ("IDirect3D9::CreateDevice D3DERR_NOTAVAILABLE\n", consoleText) << "only an echoed call writes";
    zeb::cout.setWriter(nullptr, nullptr);
}
