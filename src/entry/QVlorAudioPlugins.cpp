#include "QVlorAudioPlugins.h"

#include "audiofx.h"
#include "audiovst.h"
#include "vstfilter.h"

namespace QVlorAudioPlugins {

int Initialize()
{
    AUDIOVST_Initialize();
    return AUDIO_AddEffectFilter(&VSTEffect);
}

int Finalize() { return AUDIOVST_Finalize(); }

} // namespace QVlorAudioPlugins
