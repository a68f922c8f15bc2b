// An LV2 instance's parameters (its control inputs) and its state.
#include "lv2instance_p.h"
#include "lv2remote_p.h"

#include <lv2/atom/atom.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace vlorlv2 {

namespace {

std::string unitSymbol(const LilvPlugin* plugin, const LilvPort* port, const Nodes& n)
{
    std::string symbol;
    LilvNode* unit = lilv_port_get(plugin, port, n.unit);
    if (unit) {
        if (LilvNode* s = lilv_world_get(World(), unit, n.unitSymbol, nullptr)) {
            symbol = lilv_node_as_string(s);
            lilv_node_free(s);
        }
        lilv_node_free(unit);
    }
    return symbol;
}

std::vector<ScalePoint> scalePoints(const LilvPlugin* plugin, const LilvPort* port)
{
    std::vector<ScalePoint> points;
    LilvScalePoints* all = lilv_port_get_scale_points(plugin, port);
    LILV_FOREACH (scale_points, i, all) {
        const LilvScalePoint* p = lilv_scale_points_get(all, i);
        points.push_back({lilv_node_as_float(lilv_scale_point_get_value(p)),
                          lilv_node_as_string(lilv_scale_point_get_label(p))});
    }
    lilv_scale_points_free(all);
    std::sort(points.begin(), points.end(), [](const ScalePoint& a, const ScalePoint& b) { return a.value < b.value; });
    return points;
}

} // namespace

void MakeParams(_Lv2Instance* d)
{
    const Nodes& n = WorldNodes();
    for (size_t i = 0; i < d->ports.size(); ++i) {
        const Port& p = d->ports[i];
        if (p.kind != Port::Control || !p.input)
            continue;
        const LilvPort* port = lilv_plugin_get_port_by_index(d->plugin, p.index);
        Param param{int(i), Lv2ParamInfo{}, scalePoints(d->plugin, port)};
        Lv2ParamInfo& info = param.info;
        info.port = p.index;
        CopyText(info.symbol, sizeof(info.symbol), lilv_node_as_string(lilv_port_get_symbol(d->plugin, port)));
        LilvNode* name = lilv_port_get_name(d->plugin, port);
        CopyText(info.name, sizeof(info.name), name ? lilv_node_as_string(name) : info.symbol);
        lilv_node_free(name);
        CopyText(info.units, sizeof(info.units), unitSymbol(d->plugin, port, n).c_str());
        info.minimum = p.minimum;
        info.maximum = p.maximum;
        info.defaultValue = p.defaultValue;
        info.flags = (lilv_port_has_property(d->plugin, port, n.toggled) ? kLv2ParamToggled : 0) |
                     (lilv_port_has_property(d->plugin, port, n.integer) ? kLv2ParamInteger : 0) |
                     (lilv_port_has_property(d->plugin, port, n.enumeration) ? kLv2ParamEnumeration : 0) |
                     (lilv_port_has_property(d->plugin, port, n.logarithmic) ? kLv2ParamLogarithmic : 0);
        info.scalePoints = int32_t(param.points.size());
        d->params.push_back(std::move(param));
    }
}

// The control input of a port symbol; null for any other port.
Port* ControlInput(_Lv2Instance* d, const char* symbol)
{
    for (const Param& p : d->params)
        if (symbol && !std::strcmp(p.info.symbol, symbol))
            return &d->ports[size_t(p.port)];
    return nullptr;
}

} // namespace vlorlv2

using namespace vlorlv2;

extern "C" int VLORLV2_GetNumParams(_Lv2Instance* d)
{
    LV2_REMOTE(d, numParams(d));
    return d ? int(d->params.size()) : -1;
}

extern "C" int VLORLV2_GetParamInfo(_Lv2Instance* d, int index, Lv2ParamInfo* info)
{
    LV2_REMOTE(d, paramInfo(d, index, info));
    if (!d || !info || index < 0 || size_t(index) >= d->params.size())
        return 0;
    *info = d->params[size_t(index)].info;
    return 1;
}

extern "C" int VLORLV2_GetScalePoint(_Lv2Instance* d, int index, int point, float* value, char* label, int labelSize)
{
    LV2_REMOTE(d, scalePoint(d, index, point, value, label, labelSize));
    if (!d || index < 0 || size_t(index) >= d->params.size())
        return 0;
    const std::vector<ScalePoint>& points = d->params[size_t(index)].points;
    if (point < 0 || size_t(point) >= points.size())
        return 0;
    if (value)
        *value = points[size_t(point)].value;
    CopyText(label, labelSize, points[size_t(point)].label.c_str());
    return 1;
}

extern "C" float VLORLV2_GetParam(_Lv2Instance* d, int index)
{
    LV2_REMOTE(d, param(d, index));
    if (!d || index < 0 || size_t(index) >= d->params.size())
        return 0.0f;
    return d->ports[size_t(d->params[size_t(index)].port)].value;
}

extern "C" int VLORLV2_SetParam(_Lv2Instance* d, int index, float value)
{
    LV2_REMOTE(d, setParam(d, index, value));
    if (!d || index < 0 || size_t(index) >= d->params.size() || !std::isfinite(value))
        return 0;
    const Param& p = d->params[size_t(index)];
    float v = std::clamp(value, p.info.minimum, p.info.maximum);
    if (p.info.flags & kLv2ParamToggled)
        v = v > 0.5f * (p.info.minimum + p.info.maximum) ? p.info.maximum : p.info.minimum;
    else if (p.info.flags & kLv2ParamInteger)
        v = std::clamp(std::round(v), p.info.minimum, p.info.maximum);
    d->ports[size_t(p.port)].value = v;
    return 1;
}
