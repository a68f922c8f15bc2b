// vlorfx enable, disable, recheck: the managers' own operations on one
// plugin of the catalog, named by its file, its bundle, its class ID or its name.
#include "catalog.h"
#include "commands.h"
#include "text.h"

#include "QVlorAudioPlugins.h"

#include <QSet>
#include <QDir>
#include <QFileInfo>

#include <cstdio>
#include <cstring>

namespace {

enum class Action { Enable, Disable, Recheck };

const char* nameOf(Action a) { return a == Action::Enable ? "enable" : a == Action::Disable ? "disable" : "recheck"; }

void help(Action a, FILE* out)
{
    static const char* const what[] = {
        "Switches the plugin on. One that was never checked, or that failed, is\n"
        "checked first in a host program (a VST3 bundle is probed, a class verified).\n",
        "Switches the plugin off; its catalog entry stays.\n",
        "Forgets what the catalog knew of the plugin and checks it again in a host\n"
        "program, as if it were new: for a plugin that failed once, for example\n"
        "because its host program was killed from outside.\n"};
    std::fprintf(out,
                 "usage: vlorfx %s PLUGIN...\n\n%s\n"
                 "PLUGIN is a VST2 plugin file, a VST3 bundle, a VST3 class ID (32 hexadecimal\n"
                 "digits), an LV2 URI or bundle, or a name as vlorfx list shows it; a name\n"
                 "matches every format of that product.\n\n"
                 "example:\n  vlorfx %s /usr/lib/vst/ZamComp-vst.so\n  vlorfx %s \"ZamComp\"\n",
                 nameOf(a), what[int(a)], nameOf(a), nameOf(a));
}

// One plugin the argument names.
struct Target {
    bool vst3 = false;
    QString lv2; // an LV2 plugin's URI: the target is that plugin
    QVlorVst::Plugin plugin; // VST2
    QVlorVst::Path path;     // VST2
    QString bundle;          // VST3: the bundle, and the class when one is named; LV2: the bundle when it was named
    QString cid;
};

QString absolute(const QString& arg)
{
    const QFileInfo info(arg);
    return info.exists() ? info.absoluteFilePath() : QString();
}

// A plugin file named as vlorfx list shows it: the name in its folder, or the
// name of the file (with or without its extension), which stands for the
// product of a plugin that failed before it told its name.
bool namesFile(const QString& arg, const QString& filename, const QString& relative)
{
    const QFileInfo info(filename);
    return arg == relative || arg == info.fileName() || arg == info.completeBaseName();
}

QList<Target> vst2Targets(const QList<QVlorVst::Path>& paths, const QString& arg, const QString& file)
{
    QList<Target> out;
    for (const QVlorVst::Path& path : paths)
        for (const QVlorVst::Plugin& p : path.plugins()) {
            const bool byFile = (!file.isEmpty() && p.filename() == file) ||
                                namesFile(arg, p.filename(), p.relativeFilename(path));
            const QList<QVlorVst::Plugin> members = p.isShell() ? p.plugins() : QList<QVlorVst::Plugin>{p};
            for (const QVlorVst::Plugin& m : members)
                if (byFile || m.name().compare(arg, Qt::CaseInsensitive) == 0)
                    out << Target{false, {}, m, path, {}, {}};
            if (byFile && p.isShell() && members.isEmpty())
                out << Target{false, {}, p, path, {}, {}};
        }
    return out;
}

QList<Target> vst3Targets(const QString& arg, const QString& file)
{
    QList<Target> out;
    QVlorVst3::Manager* m = QVlorAudioPlugins::vst3Manager();
    if (!m)
        return out;
    const QString cid = arg.toUpper();
    const QVlorVst3::Catalog catalog = m->catalogCopy();
    for (const QVlorVst3::CatalogBundle& b : catalog.bundles()) {
        if ((!file.isEmpty() && b.path() == file) || namesFile(arg, b.path(), QString())) {
            out << Target{true, {}, {}, {}, b.path(), {}};
            continue;
        }
        for (const QVlorVst3::CatalogClass& c : b.classes())
            if (c.cid() == cid || c.name().compare(arg, Qt::CaseInsensitive) == 0)
                out << Target{true, {}, {}, {}, b.path(), c.cid()};
    }
    return out;
}

QList<Target> lv2Targets(const QString& arg, const QString& file)
{
    QList<Target> out;
    QVlorLv2::Manager* m = QVlorAudioPlugins::lv2Manager();
    if (!m)
        return out;
    const QVlorLv2::Catalog catalog = m->catalogCopy();
    for (const QVlorLv2::CatalogBundle& b : catalog.bundles) {
        const bool wholeBundle = (!file.isEmpty() && b.path == file) || namesFile(arg, b.path, QString());
        for (const QVlorLv2::CatalogPlugin& p : b.plugins)
            if (wholeBundle || p.uri == arg || p.name.compare(arg, Qt::CaseInsensitive) == 0)
                out << Target{false, p.uri, {}, {}, wholeBundle ? b.path : QString(), {}};
    }
    return out;
}

// An LV2 plugin: switched by its URI; one that failed is checked again first.
void actLv2(Action a, const Target& t)
{
    QVlorLv2::Manager* m = QVlorAudioPlugins::lv2Manager();
    const QVlorLv2::Catalog catalog = m->catalogCopy();
    const QVlorLv2::CatalogPlugin* p = catalog.findPlugin(t.lv2);
    // A bundle named whole is checked once, in one child, not once a plugin.
    static QSet<QString> bundlesChecked;
    if (a == Action::Recheck && !t.bundle.isEmpty()) {
        if (!bundlesChecked.contains(t.bundle)) {
            bundlesChecked.insert(t.bundle);
            m->recheckPlugin(t.bundle);
            vlorfx::settle();
        }
    } else if (a == Action::Recheck || (a == Action::Enable && p && p->state != QVlorLv2::CatalogPlugin::Usable)) {
        m->recheckPlugin(t.lv2);
        vlorfx::settle();
    }
    if (a != Action::Recheck)
        m->setPluginEnabled(t.lv2, a == Action::Enable);
}

bool reportLv2(Action a, const Target& t)
{
    vlorfx::settle();
    const QVlorLv2::Catalog catalog = QVlorAudioPlugins::lv2Manager()->catalogCopy();
    const QVlorLv2::CatalogPlugin* p = catalog.findPlugin(t.lv2);
    if (!p) {
        std::printf("%s: no longer in the catalog\n", vlorfx::printable(t.lv2).constData());
        return false;
    }
    const QString why = p->reason.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(p->reason);
    std::printf("%s: LV2 %s, %s%s\n", vlorfx::printable(p->name).constData(), vlorfx::printable(p->uri).constData(),
                qPrintable(vlorfx::stateWord(catalog, *p)), vlorfx::printable(why).constData());
    return a == Action::Disable ? !catalog.isEnabled(p->uri) : catalog.isOffered(p->uri);
}

QStringList classesOf(QVlorVst3::Manager* m, const QString& bundle)
{
    QStringList cids;
    const QVlorVst3::Catalog catalog = m->catalogCopy();
    for (const QVlorVst3::CatalogBundle& b : catalog.bundles())
        if (b.path() == bundle)
            for (const QVlorVst3::CatalogClass& c : b.classes())
                cids << c.cid();
    return cids;
}

void act(Action a, const Target& t)
{
    if (!t.lv2.isEmpty()) {
        actLv2(a, t);
        return;
    }
    if (!t.vst3) {
        QVlorVst::Manager* m = QVlorAudioPlugins::vstManager();
        QVlorVst::Plugin p = t.plugin;
        if (a == Action::Disable) {
            m->disablePlugin(p, t.path);
        } else if (a == Action::Enable) {
            m->enablePlugin(p, t.path, p.isShell());
        } else {
            m->resetPlugin(p, t.path);
            vlorfx::settle();
            // Reset, the plugin is new: the manager checks it as it checks new ones.
            m->enablePlugins({p.pluginRef()});
        }
        return;
    }
    QVlorVst3::Manager* m = QVlorAudioPlugins::vst3Manager();
    QStringList classes;
    if (!t.cid.isEmpty())
        classes << t.cid;
    else
        classes = classesOf(m, t.bundle);
    if (a == Action::Disable) {
        for (const QString& cid : classes)
            m->disablePlugin(cid);
        return;
    }
    if (a == Action::Recheck && t.cid.isEmpty())
        m->resetBundle(t.bundle);
    if (t.cid.isEmpty()) {
        m->enableBundle(t.bundle);
        vlorfx::settle();
        classes = classesOf(m, t.bundle);
    }
    for (const QString& cid : classes)
        m->enablePlugin(cid);
}

// What the catalog says of the target now; false when it is not as asked.
bool report(Action a, const Target& t, const QList<QVlorVst::Path>& paths)
{
    if (!t.lv2.isEmpty())
        return reportLv2(a, t);
    if (!t.vst3) {
        for (const QVlorVst::Path& path : paths)
            for (const QVlorVst::Plugin& p : path.plugins()) {
                const QList<QVlorVst::Plugin> members = p.isShell() ? p.plugins() : QList<QVlorVst::Plugin>{p};
                for (const QVlorVst::Plugin& m : members) {
                    if (m.pluginRef() != t.plugin.pluginRef())
                        continue;
                    const QString name = m.name().isEmpty() ? QFileInfo(m.filename()).fileName() : m.name();
                    const QString why = m.failReason().isEmpty() ? QString() : QStringLiteral(" (%1)").arg(m.failReason());
                    std::printf("%s: VST2 %s, %s%s\n", vlorfx::printable(name).constData(),
                                vlorfx::printable(m.filename()).constData(), qPrintable(vlorfx::stateWord(m)),
                                vlorfx::printable(why).constData());
                    return a == Action::Disable ? !m.isEnabled() : m.isEnabled();
                }
            }
        std::printf("%s: no longer in the catalog\n", vlorfx::printable(t.plugin.filename()).constData());
        return false;
    }
    bool ok = true;
    bool any = false;
    const QVlorVst3::Catalog catalog = QVlorAudioPlugins::vst3Manager()->catalogCopy();
    for (const QVlorVst3::CatalogBundle& b : catalog.bundles()) {
        if (b.path() != t.bundle)
            continue;
        if (b.classes().isEmpty()) {
            std::printf("%s: VST3 bundle, %s%s\n", vlorfx::printable(QFileInfo(b.path()).fileName()).constData(),
                        b.failed() ? "failed" : "unprobed",
                        vlorfx::printable(b.lastError().isEmpty() ? QString() : QStringLiteral(" (%1)").arg(b.lastError())).constData());
            return false;
        }
        for (const QVlorVst3::CatalogClass& c : b.classes()) {
            if (!t.cid.isEmpty() && c.cid() != t.cid)
                continue;
            any = true;
            const bool on = c.state() == QVlorVst3::CatalogClass::Enabled;
            const QString why = c.lastError().isEmpty() ? QString() : QStringLiteral(" (%1)").arg(c.lastError());
            std::printf("%s: VST3 %s, %s%s\n", vlorfx::printable(c.name()).constData(), qPrintable(c.cid()),
                        qPrintable(vlorfx::stateWord(c)),
                        vlorfx::printable(on ? QString() : why).constData());
            ok = ok && (a == Action::Disable ? !on : on);
        }
    }
    if (!any)
        std::printf("%s: no longer in the catalog\n", vlorfx::printable(t.cid.isEmpty() ? t.bundle : t.cid).constData());
    return ok && any;
}

int run(Action a, int argc, char** argv)
{
    if (argc == 0) {
        std::fprintf(stderr, "vlorfx %s: name the plugin\n\n", nameOf(a));
        help(a, stderr);
        return 2;
    }
    for (int i = 0; i < argc; ++i)
        if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h")) {
            help(a, stdout);
            return 0;
        } else if (argv[i][0] == '-') {
            std::fprintf(stderr, "vlorfx %s: unknown option '%s'\n\n", nameOf(a), argv[i]);
            help(a, stderr);
            return 2;
        }
    // One copy of the working list for all the arguments (it waits for the manager's thread).
    const QList<QVlorVst::Path> before = vlorfx::vst2Paths();
    QList<Target> targets;
    for (int i = 0; i < argc; ++i) {
        const QString arg = QString::fromLocal8Bit(argv[i]);
        const QString file = absolute(arg);
        const QList<Target> found = vst2Targets(before, arg, file) + vst3Targets(arg, file) + lv2Targets(arg, file);
        if (found.isEmpty()) {
            std::fprintf(stderr,
                         "vlorfx %s: nothing in the catalog is '%s' (a plugin file, a bundle, a class ID, an LV2 URI or a "
                         "name that vlorfx list shows; vlorfx scan finds new ones)\n",
                         nameOf(a), vlorfx::printable(arg).constData());
            return 1;
        }
        targets += found;
    }
    for (const Target& t : targets)
        act(a, t);
    const QList<QVlorVst::Path> after = vlorfx::vst2Paths();
    bool ok = true;
    for (const Target& t : targets)
        ok = report(a, t, after) && ok;
    return ok ? 0 : 1;
}

} // namespace

int cmdEnable(int argc, char** argv) { return run(Action::Enable, argc, argv); }
int cmdDisable(int argc, char** argv) { return run(Action::Disable, argc, argv); }
int cmdRecheck(int argc, char** argv) { return run(Action::Recheck, argc, argv); }
