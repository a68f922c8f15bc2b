#include "bldom.h"

#include "blcore.h"
#include "bldebug.h"
#include "blpopenio.h"

#include <sys/stat.h>

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

struct BLDOMRec {
    xmlDocPtr doc = nullptr;
    std::deque<std::string> texts; // stable storage for the texts handed out
};

namespace {

constexpr size_t kMaxDocument = 64u << 20;

struct Step {
    std::string name;
    std::string attribute; // empty: no predicate
    std::string value;
};

// "/A/B[@k=\"v\"]/C" -> steps; false for a path outside the language.
bool parsePath(const std::string& path, std::vector<Step>* steps)
{
    size_t i = 0;
    while (i < path.size()) {
        if (path[i] != '/')
            return false;
        ++i;
        Step s;
        while (i < path.size() && path[i] != '/' && path[i] != '[')
            s.name += path[i++];
        if (s.name.empty())
            return false;
        if (i < path.size() && path[i] == '[') {
            if (path.compare(i, 2, "[@") != 0)
                return false;
            i += 2;
            while (i < path.size() && path[i] != '=')
                s.attribute += path[i++];
            if (i >= path.size() || s.attribute.empty())
                return false;
            ++i;
            if (i < path.size() && (path[i] == '"' || path[i] == '\'')) {
                const char quote = path[i++];
                const size_t end = path.find(quote, i);
                if (end == std::string::npos)
                    return false;
                s.value = path.substr(i, end - i);
                i = end + 1;
            } else {
                while (i < path.size() && path[i] != ']')
                    s.value += path[i++];
            }
            if (i >= path.size() || path[i] != ']')
                return false;
            ++i;
        }
        steps->push_back(s);
    }
    return !steps->empty();
}

bool matches(xmlNodePtr node, const Step& step)
{
    if (node->type != XML_ELEMENT_NODE || step.name != reinterpret_cast<const char*>(node->name))
        return false;
    if (step.attribute.empty())
        return true;
    xmlChar* v = xmlGetProp(node, reinterpret_cast<const xmlChar*>(step.attribute.c_str()));
    const bool same = v && step.value == reinterpret_cast<const char*>(v);
    xmlFree(v);
    return same;
}

void collect(xmlNodePtr node, const std::vector<Step>& steps, size_t depth, std::vector<xmlNodePtr>* out)
{
    if (!matches(node, steps[depth]))
        return;
    if (depth + 1 == steps.size()) {
        out->push_back(node);
        return;
    }
    for (xmlNodePtr c = node->children; c; c = c->next)
        collect(c, steps, depth + 1, out);
}

std::vector<xmlNodePtr> find(BLDOM dom, const char* format, va_list ap)
{
    std::vector<xmlNodePtr> out;
    char* path = nullptr;
    if (!dom || !dom->doc || !format || vasprintf(&path, format, ap) < 0)
        return out;
    std::vector<Step> steps;
    if (parsePath(path, &steps))
        collect(xmlDocGetRootElement(dom->doc), steps, 0, &out);
    std::free(path);
    return out;
}

void silentErrors(void*, const char*, ...) {}

BLDOM parse(const char* text, size_t size, const char* origin)
{
    static std::once_flag once;
    std::call_once(once, [] {
        xmlInitParser();
        // Parse errors are reported once by us, not line by line on stderr.
        xmlSetGenericErrorFunc(nullptr, silentErrors);
    });
    if (!text || size == 0 || size > kMaxDocument)
        return nullptr;
    // No network, no entity expansion, no DTD loading: descriptors are plain data.
    xmlDocPtr doc = xmlReadMemory(text, int(size), origin, nullptr, XML_PARSE_NONET | XML_PARSE_NOERROR |
                                                                         XML_PARSE_NOWARNING | XML_PARSE_NOCDATA);
    if (!doc || !xmlDocGetRootElement(doc)) {
        if (doc)
            xmlFreeDoc(doc);
        BLDEBUG_Error(-1, "BLDOM_CreateFromXMLFile: cannot parse %s", origin);
        return nullptr;
    }
    auto* dom = new BLDOMRec;
    dom->doc = doc;
    return dom;
}

bool readCommand(const char* command, std::string* text)
{
    BLPOpenIO io = BLPOPENIO_Create("r", command);
    if (!io)
        return false;
    int timeoutMs = BLCORE_SetSpawnTimeout(0);
    BLCORE_SetSpawnTimeout(timeoutMs);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    char buf[65536];
    bool ok = true;
    for (;;) {
        int left = -1;
        if (timeoutMs > 0) {
            left = int(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now())
                           .count());
            if (left <= 0) {
                ok = false;
                break;
            }
        }
        const int n = BLPOPENIO_ReadDataEx(io, buf, sizeof(buf), left);
        if (n == 0)
            break;
        if (n < 0 || text->size() + size_t(n) > kMaxDocument) {
            ok = false;
            break;
        }
        text->append(buf, size_t(n));
    }
    // A command that timed out or said too much is killed; one that is done
    // has closed its output and is reaped.
    const int status = BLPOPENIO_CloseEx(io, ok ? 1 : 0, 10000);
    if (!ok)
        BLDEBUG_Error(-1, "BLDOM_CreateFromXMLFile: no complete answer from %s", command);
    return ok && status == 0;
}

} // namespace

extern "C" BLDOM BLDOM_CreateFromXMLString(const char* text, int size)
{
    return size > 0 ? parse(text, size_t(size), "memory") : nullptr;
}

extern "C" BLDOM BLDOM_CreateFromXMLFile(const char* source)
{
    if (!source || !*source)
        return nullptr;
    std::string text;
    if (std::strncmp(source, "popen://", 8) == 0) {
        if (!readCommand(source + 8, &text))
            return nullptr;
    } else {
        // A pipe or a device in the file's place would block or never end.
        struct stat st;
        if (stat(source, &st) != 0 || !S_ISREG(st.st_mode))
            return nullptr;
        FILE* f = std::fopen(source, "rb");
        if (!f)
            return nullptr;
        char buf[65536];
        size_t n;
        while ((n = std::fread(buf, 1, sizeof(buf), f)) > 0 && text.size() <= kMaxDocument)
            text.append(buf, n);
        std::fclose(f);
    }
    return parse(text.data(), text.size(), source);
}

extern "C" void BLDOM_Destroy(BLDOM dom)
{
    if (!dom)
        return;
    xmlFreeDoc(dom->doc);
    delete dom;
}

extern "C" BLDOMNode BLDOM_FindNode(BLDOM dom, const char* format, ...)
{
    va_list ap;
    va_start(ap, format);
    const std::vector<xmlNodePtr> nodes = find(dom, format, ap);
    va_end(ap);
    return nodes.empty() ? nullptr : nodes.front();
}

extern "C" int BLDOM_FindNodes(BLDOM dom, BLDOMNode* nodes, int max, const char* format, ...)
{
    va_list ap;
    va_start(ap, format);
    const std::vector<xmlNodePtr> found = find(dom, format, ap);
    va_end(ap);
    if (nodes)
        for (int i = 0; i < max && size_t(i) < found.size(); ++i)
            nodes[i] = found[size_t(i)];
    return int(found.size());
}

extern "C" const char* BLDOM_NodeTextContent(BLDOM dom, BLDOMNode node)
{
    if (!dom || !node)
        return "";
    xmlChar* t = xmlNodeGetContent(static_cast<xmlNodePtr>(const_cast<void*>(node)));
    dom->texts.emplace_back(t ? reinterpret_cast<const char*>(t) : "");
    xmlFree(t);
    return dom->texts.back().c_str();
}

extern "C" const char* BLDOM_NodeAttributeTextValue(BLDOM dom, BLDOMNode node, const char* name)
{
    if (!dom || !node || !name)
        return nullptr;
    xmlChar* v = xmlGetProp(static_cast<xmlNodePtr>(const_cast<void*>(node)), reinterpret_cast<const xmlChar*>(name));
    if (!v)
        return nullptr;
    dom->texts.emplace_back(reinterpret_cast<const char*>(v));
    xmlFree(v);
    return dom->texts.back().c_str();
}
