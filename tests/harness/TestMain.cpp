#include <gtest/gtest.h>
#include <zeb/Logger.h>

#include <cstdlib>

// Log lines go to the captures of the tests; set VEXIL_TEST_LOG=1 to see them on stderr too.
int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    const char* show = std::getenv("VEXIL_TEST_LOG");
    zeb::LogFactory::setDefaultSinkEnabled(show && *show == '1');
    return RUN_ALL_TESTS();
}
