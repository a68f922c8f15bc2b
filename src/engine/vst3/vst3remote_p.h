#ifndef VST3REMOTE_P_H
#define VST3REMOTE_P_H
// The engine's calls for an instance in a host program (vst3remote.cpp):
// each public function hands over to these when the handle's remote is set.
#include "vst3instance_p.h"

namespace vst3remote {
int start(_Vst3Instance* h);
int stop(_Vst3Instance* h);
int reset(_Vst3Instance* h);
double latency(_Vst3Instance* h);
double tail(_Vst3Instance* h);
int busChannels(_Vst3Instance* h, int* inputs, int* outputs);
int process(_Vst3Instance* h, const float* in, float* out, int channels, int frames);
int numParams(_Vst3Instance* h);
int paramInfo(_Vst3Instance* h, int index, Vst3ParamInfo* info);
double paramNormalized(_Vst3Instance* h, uint32_t id);
int setParamNormalized(_Vst3Instance* h, uint32_t id, double value);
int paramDisplay(_Vst3Instance* h, uint32_t id, double value, char* buffer, int size);
int setParamByString(_Vst3Instance* h, uint32_t id, const char* text);
int setBypass(_Vst3Instance* h, int on);
char* getConfig(_Vst3Instance* h);
int setConfig(_Vst3Instance* h, const char* config, bool notify);
int hasEditor(_Vst3Instance* h);
int editorSize(_Vst3Instance* h, int32_t* width, int32_t* height);
int editorOpen(_Vst3Instance* h, uint64_t window);
int editorClose(_Vst3Instance* h);
int editorOnSize(_Vst3Instance* h, int32_t width, int32_t height);
int editorCanResize(_Vst3Instance* h);
int editorIdle(_Vst3Instance* h);
} // namespace vst3remote

// Hands a call over when the instance runs in a host program.
#define VST3_REMOTE(h, call)                                                                                           \
    if ((h) && (h)->remote)                                                                                            \
    return vst3remote::call

#endif
