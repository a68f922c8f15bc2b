// An editor's first lines with the installed library: bring it up, scan a
// folder of VST3 plugins (checked in the library's host program), apply a
// VST2 plugin to a file (run in its host program), and go down in order.
// usage: vlorconsumer VST3_FOLDER VST2_PLUGIN WORK_FOLDER
#include <QVlorAudio.h>
#include <QVlorAudioPlugins.h>
#include <QVlorFxWidget.h>
#include <QVlorVst3_Catalog.h>
#include <QVlorVst3_Manager.h>
#include <audiofx.h>
#include <audiovst.h>

#include <QApplication>
#include <QMenu>
#include <QElapsedTimer>
#include <QFile>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

// A second of a quiet stereo sine, 16-bit PCM.
bool writeWav(const QString& path)
{
    const int rate = 44100, channels = 2, frames = rate;
    std::vector<short> samples(size_t(frames * channels));
    for (int i = 0; i < frames; ++i)
        samples[size_t(2 * i)] = samples[size_t(2 * i + 1)] = short(3000 * std::sin(0.05 * i));
    const unsigned data = unsigned(samples.size() * sizeof(short));
    auto le = [](QByteArray* b, unsigned v, int bytes) {
        for (int k = 0; k < bytes; ++k)
            b->append(char((v >> (8 * k)) & 0xff));
    };
    QByteArray head("RIFF");
    le(&head, 36 + data, 4);
    head.append("WAVEfmt ");
    le(&head, 16, 4), le(&head, 1, 2), le(&head, channels, 2), le(&head, rate, 4);
    le(&head, rate * channels * 2, 4), le(&head, channels * 2, 2), le(&head, 16, 2);
    head.append("data");
    le(&head, data, 4);
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(head) == head.size() &&
           f.write(reinterpret_cast<const char*>(samples.data()), data) == qint64(data);
}

// The editor's side of the library: a menu to hang the Plugins menu in, and
// nothing else this editor needs.
class Editor : public QVlorAudioPlugins::Host {
public:
    void announceNewPlugins(const QList<QString>&) override {}
    QMenu* mainMenu() override { return &menu; }
    void registerAction(QAction*, const QString&, const QString&, const QString&) override {}
    void registerQuickOpen(int, QAction*, const QString&, const QString&, const QString&, const QString&,
                           const QString&) override {}
    void unregisterAction(QAction*) override {}
    void unregisterQuickOpen(QAction*) override {}
    QVlorAudio currentAudio() override { return QVlorAudio(); }
    void presentEffectWidget(QVlorFxWidget* widget, QAction*, const QString&, const QString&) override { delete widget; }
    QMenu menu;
};

int fail(const char* what)
{
    std::fprintf(stderr, "vlorconsumer: %s\n", what);
    return 1;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4)
        return fail("usage: vlorconsumer VST3_FOLDER VST2_PLUGIN WORK_FOLDER");
    QApplication app(argc, argv);
    if (!QVlorAudioPlugins::Initialize())
        return fail("the library did not come up");
    Editor editor;
    QVlorAudioPlugins::UI::install(&editor);
    QVlorVst3::Manager* vst3 = QVlorAudioPlugins::vst3Manager();
    if (!vst3)
        return fail("no VST3 manager");
    vst3->setSearchPathsForTesting({QString::fromLocal8Bit(argv[1])});
    vst3->searchPlugins(true);
    vst3->enableNewPlugins(); // what the editor's "Add" does for what the scan found
    int enabled = 0;
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < 60000) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        enabled = 0;
        const QVlorVst3::Catalog catalog = vst3->catalogCopy();
        for (const QVlorVst3::CatalogBundle& b : catalog.bundles())
            for (const QVlorVst3::CatalogClass& c : b.classes())
                enabled += c.state() == QVlorVst3::CatalogClass::Enabled ? 1 : 0;
        if (!vst3->isScanning() && enabled > 0)
            break;
    }
    std::printf("VST3 classes checked and on: %d\n", enabled);
    if (enabled == 0)
        return fail("the scan checked no VST3 plugin");

    _VSTEFFECT* effect = AUDIOVST_FindPluginEx(argv[2], 0, false);
    if (!effect || !AUDIOVST_IsEnabled(effect))
        return fail("the VST2 plugin was not found in its host program");
    const std::string config = std::string("vsteffect_hash=\"") + AUDIOVST_GetHash(effect) +
                               "\",vsteffect_filename=\"" + argv[2] + "\"";
    const QString in = QString::fromLocal8Bit(argv[3]) + QStringLiteral("/in.wav");
    const QString out = QString::fromLocal8Bit(argv[3]) + QStringLiteral("/out.wav");
    if (!writeWav(in))
        return fail("could not write the input");
    AUDIO_RenderReport report{};
    char error[1024] = "";
    if (!AUDIO_RenderFileEx("VST host", config.c_str(), QFile::encodeName(in).constData(),
                            QFile::encodeName(out).constData(), AUDIO_RENDER_FLOAT, nullptr, nullptr, &report, error,
                            int(sizeof(error))))
        return fail(error);
    std::printf("applied %s: %lld frames, %d channels\n", AUDIOVST_GetDisplayName(effect), report.frames, report.channels);
    // The host program the library found: its own, in the installed libexec folder.
    const char* host = AUDIOVST_GetVlorVstPath(0);
    std::printf("host program: %s\n", host ? host : "(none)");
    if (!host || !std::strstr(host, "/libexec/qtvloraudioplugins/vlorvst"))
        return fail("the host program is not the installed library's own");
    if (report.frames != 44100 || !QFile::exists(out))
        return fail("the output is not the input's length");
    QVlorAudioPlugins::AboutToQuit();
    QVlorAudioPlugins::UI::uninstall(&editor);
    QVlorAudioPlugins::Finalize();
    return 0;
}
