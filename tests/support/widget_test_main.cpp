// Widget tests: GoogleTest under the editor's application object, driven by
// QTest events, on the offscreen platform unless a test brings its own display.
#include "testsupport.h"

#include "QVlorApplication.h"

#include <gtest/gtest.h>

#include <cstdlib>

int main(int argc, char** argv)
{
    vlortest::dataDir();
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QVlorApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
