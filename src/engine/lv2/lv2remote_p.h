#ifndef LV2REMOTE_P_H
#define LV2REMOTE_P_H
// The engine's calls for an instance in a host program (lv2remote.cpp):
// each public function hands over to these when the handle's remote is set.
#include "lv2engine.h"

namespace lv2remote {
int activate(_Lv2Instance* d);
int deactivate(_Lv2Instance* d);
int busChannels(_Lv2Instance* d, int* inputs, int* outputs);
int latency(_Lv2Instance* d);
int process(_Lv2Instance* d, const float* in, float* out, int channels, int frames);
int numParams(_Lv2Instance* d);
int paramInfo(_Lv2Instance* d, int index, Lv2ParamInfo* info);
int scalePoint(_Lv2Instance* d, int index, int point, float* value, char* label, int labelSize);
float param(_Lv2Instance* d, int index);
int setParam(_Lv2Instance* d, int index, float value);
char* state(_Lv2Instance* d);
int setState(_Lv2Instance* d, const char* text);
int hasUi(_Lv2Instance* d);
int uiOpen(_Lv2Instance* d, uint64_t parent, Lv2UiCallback callback, void* user, char* error, int errorSize);
int uiIdle(_Lv2Instance* d);
uint64_t uiWidget(_Lv2Instance* d);
int uiSize(_Lv2Instance* d, int* width, int* height);
int uiSetSize(_Lv2Instance* d, int width, int height);
int uiClose(_Lv2Instance* d);
} // namespace lv2remote

// Hands a call over when the instance runs in a host program.
#define LV2_REMOTE(d, call)                                                                                            \
    if ((d) && (d)->remote)                                                                                            \
    return lv2remote::call

#endif
