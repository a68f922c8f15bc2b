#ifndef AUDIO_OUTPUT_H
#define AUDIO_OUTPUT_H
// An audio file the user named as an output: written beside its place under
// a name of this process ("NAME.partial-PID") and moved over it whole at the
// end. Only a regular file, or nothing, is ever replaced; a link to a file is
// written through and stays. The name's extension decides the format.

#include <sndfile.h>

#include <string>

namespace audio {

class PartialOutput {
public:
    PartialOutput() = default;
    PartialOutput(const PartialOutput&) = delete;
    PartialOutput& operator=(const PartialOutput&) = delete;
    // Removes the partial file unless it was committed.
    ~PartialOutput();

    // Creates the partial file for audio shaped as input (rate, channels,
    // format where the extension allows it); floatSamples asks for 32-bit
    // float. False, with the reason for the user in *why.
    bool open(const std::string& output, const SF_INFO& input, bool floatSamples, std::string* why);
    SNDFILE* file() const { return m_file; }
    const SF_INFO& info() const { return m_info; }
    // The output takes the place of its name, whole; false with why.
    bool commit(std::string* why);

private:
    void release();

    SNDFILE* m_file = nullptr;
    SF_INFO m_info{};
    std::string m_output, m_target, m_partial;
    int m_slot = -1;
};

// The format a file named output is written in, for audio read in
// inputFormat: the input's own when the extension names its kind (or there
// is none), otherwise the kind the extension names. False, with why, for an
// extension no writable format has, or samples that kind cannot hold.
bool ChooseOutputFormat(const std::string& output, const SF_INFO& input, bool floatSamples, int* format,
                        std::string* why);

// SIGINT, SIGTERM and SIGHUP first remove the partial files of this process,
// then end it as they would have. Installed once; a handler the program set
// itself is left alone.
void RemovePartialsOnSignals();

} // namespace audio

#endif
