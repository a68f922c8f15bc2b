#ifndef AUDIO_ERRORS_H
#define AUDIO_ERRORS_H
// What the audio file library says of a file it could not open is written for
// programmers ("File contains data in an unknown format."): the user is told
// in words of their own what is wrong with which file, and the library's text
// follows after a colon for whoever needs it.

#include <sndfile.h>

#include <string>

namespace audio {

// "cannot read PATH: WHY: LIBRARY TEXT", just after sf_open failed to read path.
std::string ReadErrorText(const std::string& path);

// "cannot write PATH: WHY: LIBRARY TEXT", after an open to write or a write
// of file (null after a failed open) failed.
std::string WriteErrorText(const std::string& path, SNDFILE* file = nullptr);

} // namespace audio

#endif
