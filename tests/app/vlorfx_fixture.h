#pragma once
// vlorfx run as a user runs it: a child process with a data folder of its
// own, on real files, its output read back.
#include "testsupport.h"

#include <gtest/gtest.h>

#include <sndfile.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

namespace vlortest {

const std::string kVlorfx = VLOR_BIN_DIR "/vlorfx";
const std::string kStereo = VLOR_FIXTURE_VST_DIR "/vlor-fixture-stereo.so";

class Apply : public ::testing::Test {
protected:
    void SetUp() override
    {
        // The standard VST2 folders are the machine's: a test names its own.
        setenv("VST_PATH", "", 1);
        SF_INFO info{};
        info.samplerate = 44100;
        info.channels = 2;
        info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
        SNDFILE* f = sf_open(dir.file("in.wav").c_str(), SFM_WRITE, &info);
        input.resize(2 * 30000);
        for (size_t i = 0; i < input.size(); ++i)
            input[i] = 0.2f * float(std::sin(0.01 * double(i)));
        sf_writef_float(f, input.data(), 30000);
        sf_close(f);
    }
    // Runs vlorfx with its own data folder; the exit status.
    int run(const std::string& args)
    {
        const std::string cmd = "'" + kVlorfx + "' --data '" + dir.file("data") + "' " + args + " >'" +
                                dir.file("stdout") + "' 2>'" + dir.file("stderr") + "'";
        const int status = std::system(cmd.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
    }
    // The samples of a file of the test's folder, interleaved; its channels in *channels.
    std::vector<float> read(const std::string& name, int* channels = nullptr)
    {
        SF_INFO info{};
        SNDFILE* f = sf_open(dir.file(name).c_str(), SFM_READ, &info);
        if (!f)
            return {};
        std::vector<float> v(size_t(info.frames) * size_t(info.channels));
        sf_readf_float(f, v.data(), info.frames);
        sf_close(f);
        if (channels)
            *channels = info.channels;
        return v;
    }
    std::string err() { return readFile(dir.file("stderr")); }
    TempDir dir;
    std::vector<float> input;
};

} // namespace vlortest
