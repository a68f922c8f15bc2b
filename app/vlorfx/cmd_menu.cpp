// vlorfx menu: the Plugins menu as the library builds it for the editor,
// after the catalogs have loaded, as text or JSON.
#include "catalog.h"
#include "commands.h"
#include "text.h"

#include "QVlorAudio.h"
#include "QVlorAudioPlugins.h"
#include "QVlorPairKeybindings.h"
#include "QVlorPluginsMenu.h"
#include "QVlorSetting.h"
#include "QVlorVst_Manager.h"

#include <QAction>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMenu>

#include <cstdio>
#include <string>

namespace {

const char* const kMenuHelp =
    "usage: vlorfx menu [--json] [--with-audio] [--bind ACTION-ID KEYS]...\n\n"
    "Prints the Plugins menu as the library builds it for the editor: a submenu\n"
    "per vendor, an entry per usable product in its active format with the id\n"
    "its shortcut is stored under, and the scan and manage commands. Entries are\n"
    "enabled only when an audio is open: --with-audio pretends one is.\n\n"
    "  --json             the menu as JSON\n"
    "  --bind ID KEYS     store a shortcut under an action id first (KEYS empty to\n"
    "                     remove it); after a VST3 scan, bindings of paired plugins\n"
    "                     move to their pair's id\n\n"
    "example:\n"
    "  vlorfx menu --bind vst3id-5A614D436F6D707A616D636F6D700000 Ctrl+Shift+C\n";

QJsonArray itemsJson(const QMenu* menu)
{
    QJsonArray items;
    for (QAction* a : menu->actions()) {
        if (a->isSeparator()) {
            items.append(QJsonObject{{QStringLiteral("separator"), true}});
            continue;
        }
        QJsonObject o{{QStringLiteral("text"), a->text()}, {QStringLiteral("enabled"), a->isEnabled()}};
        if (a->menu())
            o.insert(QStringLiteral("items"), itemsJson(a->menu()));
        const QString id = vlorfx::actionId(a);
        if (!id.isEmpty())
            o.insert(QStringLiteral("id"), id);
        if (!a->shortcut().isEmpty())
            o.insert(QStringLiteral("shortcut"), a->shortcut().toString());
        items.append(o);
    }
    return items;
}

void printItems(const QMenu* menu, int depth)
{
    const std::string indent(size_t(depth) * 2, ' ');
    for (QAction* a : menu->actions()) {
        if (a->isSeparator()) {
            std::printf("%s----\n", indent.c_str());
            continue;
        }
        const QString id = vlorfx::actionId(a);
        std::printf("%s%s", indent.c_str(), vlorfx::printable(a->text()).constData());
        if (!id.isEmpty())
            std::printf("  [%s]", vlorfx::printable(id).constData());
        if (!a->shortcut().isEmpty())
            std::printf("  %s", qPrintable(a->shortcut().toString()));
        if (!a->menu() && !a->isEnabled())
            std::printf("  (disabled)");
        std::printf("\n");
        if (a->menu())
            printItems(a->menu(), depth + 1);
    }
}

} // namespace

int cmdMenu(int argc, char** argv)
{
    bool json = false;
    for (int i = 0; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--help" || a == "-h") {
            std::fputs(kMenuHelp, stdout);
            return 0;
        }
        if (a == "--json") {
            json = true;
        } else if (a == "--with-audio") {
            vlorfx::setFrontAudio(QVlorAudio(QStringLiteral("front.wav"), 2, 44100, 44100));
        } else if (a == "--bind" && i + 2 < argc) {
            const QString key = QVlorAudioPlugins::ShortcutSettingKey(QString::fromUtf8(argv[i + 1]));
            const QString keys = QString::fromUtf8(argv[i + 2]);
            if (keys.isEmpty())
                QVlorSetting::global().remove(key);
            else
                QVlorSetting::global().change(key, keys);
            i += 2;
        } else {
            std::fprintf(stderr, "vlorfx menu: unknown argument %s (vlorfx menu --help tells more)\n", a.c_str());
            return 2;
        }
    }
    QVlorAudioPlugins::MenuController* controller = QVlorAudioPlugins::UI::menuController();
    if (!controller || !vlorfx::giveMainMenu()) {
        std::fprintf(stderr, "vlorfx menu: the library made no Plugins menu\n");
        return 1;
    }
    // A loaded VST2 catalog reaches the copies through the scan that follows it,
    // as at the editor's start; plugins found since are not checked here.
    if (QVlorVst::Manager* vst2 = QVlorAudioPlugins::vstManager())
        vst2->updatePlugins(false, false);
    vlorfx::settle();
    controller->rebuildPluginsMenuNow();
    const QMenu* menu = controller->pluginsMenu();
    if (!menu) {
        std::fprintf(stderr, "vlorfx menu: the library made no Plugins menu\n");
        return 1;
    }
    if (json) {
        const QJsonObject root{{QStringLiteral("title"), menu->title()}, {QStringLiteral("items"), itemsJson(menu)}};
        std::fputs(QJsonDocument(root).toJson(QJsonDocument::Indented).constData(), stdout);
        return 0;
    }
    std::printf("%s\n", vlorfx::printable(menu->title()).constData());
    printItems(menu, 1);
    return 0;
}
