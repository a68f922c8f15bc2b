#include "testsupport.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <cstring>

extern "C" int VLORVST3_HostMain(int argc, char** argv);

int main(int argc, char** argv)
{
    // A library without vlorvst3 beside the application starts the
    // application itself as its VST3 host, as the editor does.
    if (argc > 1 && !std::strcmp(argv[1], "--vst3")) {
        argv[1] = argv[0];
        return VLORVST3_HostMain(argc - 1, argv + 1);
    }
    // Every test program works in a data folder of its own, never the user's.
    vlortest::dataDir();
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
