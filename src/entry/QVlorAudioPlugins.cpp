#include "QVlorAudioPlugins.h"

#include "audiofx.h"
#include "audiovst.h"
#include "vst3filter.h"
#include "vstfilter.h"

namespace QVlorAudioPlugins {

int Initialize()
{
    AUDIOVST_Initialize();
    AUDIO_AddEffectFilter(&VSTEffect);
    return AUDIO_AddEffectFilter(&VST3Effect);
}

int Finalize() { return AUDIOVST_Finalize(); }

} // namespace QVlorAudioPlugins
