#pragma once
// vlorfx run as a user runs it: a child process with a data folder of its
// own, on real files, its output read back.
#include "testsupport.h"

#include <QFile>

#include <gtest/gtest.h>

#include <sndfile.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
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
        // And the LV2 folders: none, unless a test names its own.
        setenv("LV2_PATH", ":", 1);
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

// vlorfx's commands with a folder of fixture plugins of their own.
class Cli : public Apply {
protected:
    std::string out() { return readFile(dir.file("stdout")); }
    // A folder of copies of fixture plugins under the names given.
    std::string plugins(const std::vector<std::pair<std::string, std::string>>& copies)
    {
        const std::string folder = dir.file("plugins");
        mkdir(folder.c_str(), 0755);
        for (const auto& c : copies)
            EXPECT_TRUE(QFile::copy(QString::fromStdString(VLOR_FIXTURE_VST_DIR "/" + c.first),
                                    QString::fromStdString(folder + "/" + c.second)));
        return folder;
    }
    int lineOf(const std::string& text, const std::string& what)
    {
        const size_t at = text.find(what);
        return at == std::string::npos ? -1 : int(std::count(text.begin(), text.begin() + long(at), '\n'));
    }
    void writePcm16(const std::string& name, float amplitude)
    {
        SF_INFO info{};
        info.samplerate = 44100;
        info.channels = 2;
        info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
        SNDFILE* f = sf_open(dir.file(name).c_str(), SFM_WRITE, &info);
        std::vector<float> v(2 * 4410);
        for (size_t i = 0; i < v.size(); ++i)
            v[i] = amplitude * float(std::sin(0.01 * double(i)));
        sf_writef_float(f, v.data(), 4410);
        sf_close(f);
    }
    int formatOf(const std::string& name)
    {
        SF_INFO info{};
        SNDFILE* f = sf_open(dir.file(name).c_str(), SFM_READ, &info);
        if (f)
            sf_close(f);
        return f ? info.format & SF_FORMAT_SUBMASK : -1;
    }
};

} // namespace vlortest
