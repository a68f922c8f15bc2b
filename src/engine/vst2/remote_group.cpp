// Instances that share one host program: a group has one pipe and one lock
// for all its members, each command goes to its member by the member's place
// in the host, and a chain of members runs in one round trip. When the host
// dies, every member learns it, and the one whose call was in flight is the
// one to blame.
#include "remote_ops_p.h"

#include "../shmaudio_p.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>

namespace vlorvst_remote {

struct Group {
    std::string key;
    void* io = nullptr;
    pthread_mutex_t* lock = nullptr;
    int refs = 0;
    bool gone = false;
    vlorshm::PeerWatch host;
    std::map<int32_t, RemoteInstance*> members;
    int32_t pipePlace = -1; // the member whose command is on the pipe
};

namespace {

std::mutex g_groupsLock;
std::map<std::string, Group*> g_groups; // the live ones, by key

int defaultCallback(void*, _VstEffectMessage*) { return 0; }

// The end of a member's share; the group goes with its last member.
void release(Group* g, bool terminate)
{
    {
        std::lock_guard<std::mutex> l(g_groupsLock);
        if (--g->refs > 0)
            return;
        auto it = g_groups.find(g->key);
        if (it != g_groups.end() && it->second == g)
            g_groups.erase(it);
    }
    bool ended = false;
    if (!terminate && !g->gone) {
        VLORVST_MutexLock(g->lock);
        int32_t reply = 0;
        ended = vlorvstSendCommand(g->io, VLORVST_EXIT) && vlorvstRecvCommand(g->io, &reply) && reply == VLORVST_OK;
        VLORVST_MutexUnlock(g->lock);
    }
    if (ended)
        vlorvstCloseIO(g->io);
    else
        vlorvsTerminateIO(g->io);
    VLORVST_MutexDestroy(g->lock);
    delete g;
}

Group* startGroup(const std::string& key, const char* host)
{
    auto* g = new Group;
    g->key = key;
    const std::string command = "\"" + std::string(host) + "\" --group";
    if (!vlorvstOpenIO(command.c_str(), &g->io) || !g->io || !(g->lock = VLORVST_MutexInit())) {
        if (g->io)
            vlorvsTerminateIO(g->io);
        delete g;
        return nullptr;
    }
    return g;
}

// "gnew" in g: the member's place, or -1.
int32_t openIn(Group* g, const char* file, int32_t id)
{
    VLORVST_MutexLock(g->lock);
    int32_t reply = 0, place = -1, pid = 0;
    const bool ok = send(g->io, Message(VLORVST_GROUP_NEW).str(file).i32(id)) && vlorvstRecvCommand(g->io, &reply) &&
                    reply == VLORVST_OK && vlorvstRecvIntValue(g->io, &place) && vlorvstRecvIntValue(g->io, &pid);
    if (ok && !g->host.alive())
        g->host.watch(pid);
    if (!ok && (!reply || !g->host.alive()))
        g->gone = true;
    VLORVST_MutexUnlock(g->lock);
    return ok && place >= 0 ? place : -1;
}

// The live group of key with one more member, started when there is none;
// the member's place through place.
Group* joinGroup(const std::string& key, const char* host, const char* file, int32_t id, int32_t* place)
{
    for (int attempt = 0; attempt < 2; ++attempt) {
        Group* g = nullptr;
        {
            std::lock_guard<std::mutex> l(g_groupsLock);
            auto it = g_groups.find(key);
            if (it != g_groups.end() && !it->second->gone) {
                g = it->second;
            } else {
                if (it != g_groups.end())
                    g_groups.erase(it);
                if (!(g = startGroup(key, host)))
                    return nullptr;
                g_groups[key] = g;
            }
            ++g->refs;
        }
        *place = openIn(g, file, id);
        if (*place >= 0)
            return g;
        const bool gone = g->gone;
        release(g, gone);
        // A plugin that would not open fails; a host that had died gets a
        // successor once.
        if (!gone)
            return nullptr;
    }
    return nullptr;
}

// Every member hears of the host's end; the one whose call was in flight
// (its plugin inside a block, or its command on the pipe) takes the blame.
void noteGone(Group* g)
{
    if (g->gone)
        return;
    g->gone = true;
    {
        std::lock_guard<std::mutex> l(g_groupsLock);
        auto it = g_groups.find(g->key);
        if (it != g_groups.end() && it->second == g)
            g_groups.erase(it);
    }
    for (auto& m : g->members) {
        RemoteInstance* r = m.second;
        const bool inBlock = r->shm && shmInCall(r);
        r->crash = inBlock || g->pipePlace == m.first ? kCrashBlamed : kCrashOther;
    }
}

} // namespace

bool sendPrefix(RemoteInstance* r)
{
    if (!r->group)
        return true;
    r->group->pipePlace = r->place;
    return send(r->io, Message(VLORVST_GROUP_SELECT).i32(r->place));
}

bool sendTo(RemoteInstance* r, const Message& m) { return sendPrefix(r) && send(r->io, m); }

void answered(RemoteInstance* r, bool ok)
{
    Group* g = r->group;
    if (!g) {
        if (!ok)
            r->crash = kCrashBlamed;
        return;
    }
    if (!ok && !g->host.alive())
        noteGone(g);
    g->pipePlace = -1;
}

void blockFailed(RemoteInstance* r)
{
    if (r->group && !r->group->host.alive())
        noteGone(r->group);
    else if (!r->group && r->shm)
        r->crash = kCrashBlamed;
}

bool routeGroupEvent(RemoteInstance* r)
{
    int32_t values[4];
    for (int32_t& v : values)
        if (!vlorvstRecvIntValue(r->io, &v))
            return false;
    Group* g = r->group;
    auto it = g ? g->members.find(values[0]) : decltype(g->members.end()){};
    if (!g || it == g->members.end())
        return true; // a member gone since: nobody to tell
    RemoteInstance* to = it->second;
    _VstEffectMessage message{values[1], &to->ops, values[2], values[3]};
    if (to->ops.hostCallback)
        to->ops.hostCallback(to->ops.hostData, &message);
    return true;
}

void leaveGroup(RemoteInstance* r, bool terminate)
{
    Group* g = r->group;
    if (!g)
        return;
    VLORVST_MutexLock(g->lock);
    g->members.erase(r->place);
    VLORVST_MutexUnlock(g->lock);
    r->group = nullptr;
    r->lock = nullptr; // the group's
    release(g, terminate || g->gone);
}

bool sameGroup(RemoteInstance* a, RemoteInstance* b) { return a->group && a->group == b->group; }
int groupSize(RemoteInstance* r) { return r->group ? int(r->group->members.size()) : 1; }

} // namespace vlorvst_remote

using namespace vlorvst_remote;

extern "C" _VstEffectInstance* vlorvstCreateGroupEffect(const char* groupKey, const char* host,
                                                        VstHostCallbackProc hostCallback, void* hostData,
                                                        const char* file, int id)
{
    if (!groupKey || !host || !file)
        return nullptr;
    int32_t place = -1;
    Group* g = joinGroup(std::string(host) + "\n" + groupKey, host, file, id, &place);
    if (!g)
        return nullptr;
    auto* r = static_cast<RemoteInstance*>(std::calloc(1, sizeof(RemoteInstance)));
    if (!r) {
        release(g, false);
        return nullptr;
    }
    r->ops.hostCallback = hostCallback ? hostCallback : defaultCallback;
    r->ops.hostData = hostData;
    r->io = g->io;
    r->lock = g->lock;
    r->group = g;
    r->place = place;
    r->crash = kCrashNone;
    fillOps(&r->ops);
    VLORVST_MutexLock(g->lock);
    g->members[place] = r;
    VLORVST_MutexUnlock(g->lock);
    return &r->ops;
}

extern "C" int vlorvstCrashBlame(_VstEffectInstance* effect)
{
    RemoteInstance* r = remote(effect);
    return r ? r->crash : kCrashNone;
}

extern "C" int vlorvstGroupSize(_VstEffectInstance* effect) { return effect ? groupSize(remote(effect)) : 0; }
