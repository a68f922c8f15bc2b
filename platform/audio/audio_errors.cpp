#include "audio_errors.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace audio {

namespace {

// The reason as the file system sees it, which the library only half tells.
std::string pathProblem(const std::string& path, bool writing)
{
    struct stat st;
    if (!writing) {
        if (stat(path.c_str(), &st) != 0)
            return errno == ENOENT ? "there is no such file" : std::strerror(errno);
        if (S_ISDIR(st.st_mode))
            return "it is a folder, not a file";
        if (access(path.c_str(), R_OK) != 0)
            return "you may not read it";
        if (S_ISREG(st.st_mode) && st.st_size == 0)
            return "the file is empty";
        return {};
    }
    const size_t slash = path.find_last_of('/');
    const std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    if (stat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
        return "its folder " + folder + " does not exist";
    if (access(folder.c_str(), W_OK) != 0)
        return "you may not write in " + folder;
    return {};
}

std::string libraryWords(int code)
{
    switch (code) {
    case SF_ERR_UNRECOGNISED_FORMAT:
        return "it holds no audio in a format that can be read";
    case SF_ERR_MALFORMED_FILE:
        return "the file is damaged or cut short";
    case SF_ERR_UNSUPPORTED_ENCODING:
        return "its audio is encoded in a way that cannot be read";
    case SF_ERR_SYSTEM:
        return "the system refused it";
    default:
        return "the audio file library refused it";
    }
}

} // namespace

std::string ReadErrorText(const std::string& path)
{
    const std::string library = sf_strerror(nullptr);
    const std::string problem = pathProblem(path, false);
    if (!problem.empty())
        return "cannot read " + path + ": " + problem;
    return "cannot read " + path + ": " + libraryWords(sf_error(nullptr)) + ": " + library;
}

std::string WriteErrorText(const std::string& path, SNDFILE* file)
{
    const std::string library = sf_strerror(file);
    const std::string problem = file ? std::string() : pathProblem(path, true);
    if (!problem.empty())
        return "cannot write " + path + ": " + problem;
    const std::string words = file ? "the disk may be full, or the file was taken away" : libraryWords(sf_error(nullptr));
    return "cannot write " + path + ": " + words + ": " + library;
}

} // namespace audio
