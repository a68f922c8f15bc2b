#include "QVlorAudioPlugins.h"

#include "audiovst.h"

namespace QVlorAudioPlugins {

int Initialize()
{
    // The audio engine's filters are registered here, after the engine, as
    // each of them joins the library.
    return AUDIOVST_Initialize();
}

int Finalize() { return AUDIOVST_Finalize(); }

} // namespace QVlorAudioPlugins
