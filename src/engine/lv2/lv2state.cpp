// An LV2 instance's state as text: what its state interface saves, and the
// value of every control input, written by lilv as Turtle.
#include "lv2instance_p.h"
#include "lv2remote_p.h"

#include <lv2/atom/atom.h>

#include <cmath>
#include <cstdlib>
#include <cstring>

namespace vlorlv2 {

namespace {

const char* const kStateUri = "urn:vlor:lv2-state";

const void* portValue(const char* symbol, void* user, uint32_t* size, uint32_t* type)
{
    Port* p = ControlInput(static_cast<_Lv2Instance*>(user), symbol);
    if (!p)
        return nullptr;
    *size = sizeof(float);
    *type = MapUri(LV2_ATOM__Float);
    return &p->value;
}

void setPortValue(const char* symbol, void* user, const void* value, uint32_t size, uint32_t type)
{
    Port* p = ControlInput(static_cast<_Lv2Instance*>(user), symbol);
    if (!p || !value)
        return;
    float v;
    if (type == MapUri(LV2_ATOM__Float) && size == sizeof(float))
        std::memcpy(&v, value, sizeof(v));
    else if (type == MapUri(LV2_ATOM__Double) && size == sizeof(double))
        v = float(*static_cast<const double*>(value));
    else if (type == MapUri(LV2_ATOM__Int) && size == sizeof(int32_t))
        v = float(*static_cast<const int32_t*>(value));
    else
        return;
    if (std::isfinite(v))
        p->value = std::fmin(std::fmax(v, p->minimum), p->maximum);
}

} // namespace

char* TakeStateText(LilvState* state)
{
    if (!state)
        return nullptr;
    char* text = lilv_state_to_string(World(), UridMap(), UridUnmap(), state, kStateUri, nullptr);
    lilv_state_free(state);
    if (!text)
        return nullptr;
    // Ours to free with the C library's free, whatever allocator lilv used.
    char* copy = strdup(text);
    lilv_free(text);
    return copy;
}

} // namespace vlorlv2

using namespace vlorlv2;

extern "C" char* VLORLV2_GetState(_Lv2Instance* d)
{
    LV2_REMOTE(d, state(d));
    if (!d)
        return nullptr;
    std::lock_guard<std::mutex> l(WorldLock());
    LilvState* state = lilv_state_new_from_instance(d->plugin, d->instance, UridMap(), nullptr, nullptr, nullptr,
                                                    nullptr, portValue, d,
                                                    LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE, d->featureList);
    return TakeStateText(state);
}

extern "C" void VLORLV2_FreeString(char* text) { std::free(text); }

extern "C" int VLORLV2_SetState(_Lv2Instance* d, const char* text)
{
    LV2_REMOTE(d, setState(d, text));
    if (!d || !text || !*text)
        return 0;
    std::lock_guard<std::mutex> l(WorldLock());
    LilvState* state = lilv_state_new_from_string(World(), UridMap(), text);
    if (!state)
        return 0;
    // Another plugin's state would set ports by symbols that mean something else here.
    if (!lilv_node_equals(lilv_state_get_plugin_uri(state), lilv_plugin_get_uri(d->plugin))) {
        lilv_state_free(state);
        return 0;
    }
    lilv_state_restore(state, d->instance, setPortValue, d, LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE,
                       d->featureList);
    lilv_state_free(state);
    return 1;
}
