// Running a host program for one job: the reply rules against real child
// programs, and the VST3 host itself on real bundles and on bundles that
// crash, hang or fail.
#include "QVlorVst3_Probe_p.h"

#include "QVlorVst3_Catalog.h"

#include "testsupport.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QSet>
#include <QJsonArray>
#include <QJsonObject>

#include <QDir>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

using vlortest::TempDir;

namespace {

const QString kHost = QStringLiteral(VLOR_BIN_DIR "/vlorvst3");
const QString kBundles = QStringLiteral(VLOR_FIXTURE_VST3_DIR);

struct Outcome {
    bool ok;
    QJsonObject reply;
    QString error;
};

Outcome run(const QString& program, const QStringList& args, int timeoutMs = 10000)
{
    Outcome o;
    o.ok = __RunHostProcess(program, args, timeoutMs, &o.reply, &o.error);
    return o;
}

// A child that behaves as the script says.
Outcome runScript(const char* body, int timeoutMs = 10000)
{
    return run(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), QString::fromUtf8(body)}, timeoutMs);
}

QString zamBundleDir()
{
    return QStringLiteral("/usr/lib/vst3");
}

bool anyChildOf(pid_t parent)
{
    const QString out = QString::fromLatin1(
        [&] {
            QFile f(QStringLiteral("/proc/%1/task/%1/children").arg(parent));
            f.open(QIODevice::ReadOnly);
            return f.readAll();
        }());
    return !out.trimmed().isEmpty();
}

} // namespace

TEST(HostReplyRules, CleanRepliesAndChatter)
{
    Outcome o = runScript(R"(echo hello; echo '{"ok":true,"classes":[]}'; echo; echo "   ")");
    EXPECT_TRUE(o.ok) << o.error.toStdString();
    EXPECT_TRUE(o.reply.contains(QStringLiteral("classes")));

    // Only the last line counts: an earlier object is chatter.
    o = runScript(R"(echo '{"ok":true}'; echo '{"ok":false,"error":"the plugin said no"}')");
    EXPECT_FALSE(o.ok);
    EXPECT_EQ(o.error, QStringLiteral("the plugin said no"));

    o = runScript(R"(echo '{"ok":false}')");
    EXPECT_FALSE(o.ok);
    EXPECT_EQ(o.error, QStringLiteral("probe reported failure"));
    EXPECT_TRUE(o.reply.contains(QStringLiteral("ok"))); // the reply is kept on failure too

    o = runScript(R"(echo '{"classes":[]}')"); // "ok" absent counts as false
    EXPECT_FALSE(o.ok);
}

TEST(HostReplyRules, NoReply)
{
    EXPECT_EQ(runScript("exit 0").error, QStringLiteral("probe produced no parseable output"));
    EXPECT_EQ(runScript("echo '[1,2]'").error, QStringLiteral("probe produced no parseable output"));
    EXPECT_EQ(runScript("echo '{\"ok\":tru'").error, QStringLiteral("probe produced no parseable output"));
    EXPECT_EQ(runScript("exit 3").error, QStringLiteral("probe exited with code 3"));
    EXPECT_EQ(runScript("echo garbage; exit 4").error, QStringLiteral("probe exited with code 4"));
}

TEST(HostReplyRules, CrashesAndFailedExits)
{
    EXPECT_EQ(runScript("kill -SEGV $$").error, QStringLiteral("probe crashed"));

    Outcome o = runScript(R"(echo '{"ok":true}'; exit 1)");
    EXPECT_FALSE(o.ok);
    EXPECT_EQ(o.error, QStringLiteral("probe process failed"));

    // A crash after the reply fails, and keeps the reply's own text.
    o = runScript(R"(echo '{"ok":true,"error":"died in teardown"}'; kill -ABRT $$)");
    EXPECT_FALSE(o.ok);
    EXPECT_EQ(o.error, QStringLiteral("died in teardown"));
    EXPECT_TRUE(o.reply.value(QStringLiteral("ok")).toBool());
}

TEST(HostReplyRules, TimeoutsKillTheChild)
{
    QElapsedTimer timer;
    timer.start();
    const Outcome o = runScript("echo '{\"ok\":true}'; sleep 30", 1000);
    const qint64 elapsed = timer.elapsed();
    EXPECT_EQ(o.error, QStringLiteral("did not answer within 1 s"));
    EXPECT_GE(elapsed, 900);
    EXPECT_LT(elapsed, 1000 + 2000 + 1000);
    EXPECT_FALSE(anyChildOf(getpid()));

    // A program that cannot start shows as a failed wait.
    EXPECT_EQ(run(QStringLiteral("/nonexistent/vlorvst3"), {}).error, QStringLiteral("probe timeout"));
}

TEST(HostReplyRules, ParserAndRoots)
{
    QJsonObject r;
    EXPECT_TRUE(QVlorVst3::ParseHostReply("x\n{\"ok\":true}\r\n \n", &r));
    EXPECT_FALSE(QVlorVst3::ParseHostReply("{\"ok\":true}\n}", &r));
    EXPECT_FALSE(QVlorVst3::ParseHostReply("\n\n", &r));
    // A byte of another code page, or a name cut inside a character, costs
    // that character and not the whole reply.
    ASSERT_TRUE(QVlorVst3::ParseHostReply("{\"ok\":true,\"classes\":[{\"name\":\"Caf\xE9 \xC3\"}]}", &r));
    EXPECT_EQ(r.value(QStringLiteral("classes")).toArray().first().toObject().value(QStringLiteral("name")).toString(),
              QStringLiteral("Caf\uFFFD \uFFFD"));

    const QStringList roots{QStringLiteral("/a/b/"), QStringLiteral("/x/y/../z")};
    EXPECT_TRUE(__IsUnderScannedRoot(QStringLiteral("/a/b/c.vst3"), roots));
    EXPECT_TRUE(__IsUnderScannedRoot(QStringLiteral("/a/b"), roots));
    EXPECT_TRUE(__IsUnderScannedRoot(QStringLiteral("/x/z/p.vst3"), roots));
    EXPECT_FALSE(__IsUnderScannedRoot(QStringLiteral("/a/bc/p.vst3"), roots));
    EXPECT_FALSE(__IsUnderScannedRoot(QStringLiteral("/A/b/p.vst3"), roots));
    EXPECT_FALSE(__IsUnderScannedRoot(QStringLiteral("/a/b/p.vst3"), {}));
}

// Every real bundle on the machine probes and verifies in the host program.
TEST(Vst3HostProgram, ProbesAndVerifiesRealBundles)
{
    const QStringList bundles = QDir(zamBundleDir()).entryList({QStringLiteral("Zam*.vst3"), QStringLiteral("ZaM*.vst3")});
    if (bundles.isEmpty())
        GTEST_SKIP() << "no zam-plugins VST3 bundles installed";
    for (const QString& name : bundles) {
        const QString bundle = zamBundleDir() + QLatin1Char('/') + name;
        Outcome probe = run(kHost, QVlorVst3::ProbeArguments(bundle));
        ASSERT_TRUE(probe.ok) << name.toStdString() << ": " << probe.error.toStdString();
        const QJsonArray classes = probe.reply.value(QStringLiteral("classes")).toArray();
        ASSERT_EQ(classes.size(), 1) << name.toStdString();
        const QJsonObject c = classes.first().toObject();
        EXPECT_EQ(c.value(QStringLiteral("cid")).toString().size(), 32);
        EXPECT_EQ(c.value(QStringLiteral("vendor")).toString(), QStringLiteral("Damien Zammit"));
        EXPECT_TRUE(c.value(QStringLiteral("subCategories")).toString().startsWith(QStringLiteral("Fx")));
        EXPECT_FALSE(probe.reply.value(QStringLiteral("truncated")).toBool());
        Outcome verify = run(kHost, QVlorVst3::VerifyArguments(bundle, c.value(QStringLiteral("cid")).toString()));
        EXPECT_TRUE(verify.ok) << name.toStdString() << ": " << verify.error.toStdString();
    }
}

TEST(Vst3HostProgram, FaultyBundlesFailWithoutHarm)
{
    // The plugin prints an object of its own while loading; the reply still wins.
    Outcome o = run(kHost, QVlorVst3::ProbeArguments(kBundles + QStringLiteral("/vlor-vst3-classes.vst3")));
    ASSERT_TRUE(o.ok) << o.error.toStdString();
    EXPECT_EQ(o.reply.value(QStringLiteral("classes")).toArray().size(), 5);

    EXPECT_EQ(run(kHost, QVlorVst3::ProbeArguments(kBundles + QStringLiteral("/vlor-vst3-crash-entry.vst3"))).error,
              QStringLiteral("probe crashed"));
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(run(kHost, QVlorVst3::ProbeArguments(kBundles + QStringLiteral("/vlor-vst3-hang-entry.vst3")), 1500).error,
              QStringLiteral("did not answer within 2 s"));
    EXPECT_LT(timer.elapsed(), 1500 + 2000 + 1000);
    EXPECT_FALSE(anyChildOf(getpid()));

    // Past the host's cap the list is cut and says so; the probe still succeeds.
    o = run(kHost, QVlorVst3::ProbeArguments(kBundles + QStringLiteral("/vlor-vst3-many.vst3")));
    ASSERT_TRUE(o.ok) << o.error.toStdString();
    EXPECT_TRUE(o.reply.value(QStringLiteral("truncated")).toBool());
    EXPECT_EQ(o.reply.value(QStringLiteral("classes")).toArray().size(), 256);
    EXPECT_EQ(o.reply.value(QStringLiteral("classes")).toArray().last().toObject().value(QStringLiteral("cid")).toString(),
              QStringLiteral("4D0000000000000000000000000000FF"));

    o = run(kHost, QVlorVst3::ProbeArguments(kBundles + QStringLiteral("/vlor-vst3-entry-fails.vst3")));
    EXPECT_FALSE(o.ok);
    EXPECT_TRUE(o.error.startsWith(QStringLiteral("the bundle could not be loaded"))) << o.error.toStdString();
    o = run(kHost, QVlorVst3::ProbeArguments(QStringLiteral("/nonexistent/Nothing.vst3")));
    EXPECT_TRUE(o.error.startsWith(QStringLiteral("the bundle could not be loaded"))) << o.error.toStdString();

    const QString effects = kBundles + QStringLiteral("/vlor-vst3-effects.vst3");
    o = run(kHost, QVlorVst3::VerifyArguments(effects, QStringLiteral("51000000000000000000000000000004")));
    EXPECT_EQ(o.error, QStringLiteral("the effect fails to process audio"));
    o = run(kHost, QVlorVst3::VerifyArguments(effects, QStringLiteral("51000000000000000000000000000009")));
    EXPECT_TRUE(o.error.contains(QStringLiteral("51000000000000000000000000000009"))) << o.error.toStdString();
    for (const char* cid : {"51000000000000000000000000000001", "51000000000000000000000000000003"}) {
        o = run(kHost, QVlorVst3::VerifyArguments(effects, QString::fromLatin1(cid)));
        EXPECT_TRUE(o.ok) << cid << ": " << o.error.toStdString();
    }
    EXPECT_EQ(run(kHost, QVlorVst3::VerifyArguments(kBundles + QStringLiteral("/vlor-vst3-crash-entry.vst3"),
                                                   QStringLiteral("51000000000000000000000000000001")))
                  .error,
              QStringLiteral("probe crashed"));
    EXPECT_EQ(run(kHost, {QStringLiteral("--bogus")}).error, QStringLiteral("bad arguments to the VST3 host"));
}

// Without vlorvst3 the application serves: same command lines, same replies.
TEST(Vst3HostProgram, TheApplicationAnswersAsTheHost)
{
    const QString app = QStringLiteral(VLOR_BIN_DIR "/vlorfx");
    const QString effects = kBundles + QStringLiteral("/vlor-vst3-effects.vst3");
    const QStringList asHost{QStringLiteral("--vst3")};
    Outcome viaApp = run(app, asHost + QVlorVst3::ProbeArguments(effects));
    Outcome viaHost = run(kHost, QVlorVst3::ProbeArguments(effects));
    ASSERT_TRUE(viaApp.ok) << viaApp.error.toStdString();
    EXPECT_EQ(viaApp.reply, viaHost.reply);
    EXPECT_EQ(run(app, asHost + QVlorVst3::VerifyArguments(effects, QStringLiteral("51000000000000000000000000000004"))).error,
              QStringLiteral("the effect fails to process audio"));
    EXPECT_EQ(run(app, asHost + QVlorVst3::ProbeArguments(kBundles + QStringLiteral("/vlor-vst3-crash-entry.vst3"))).error,
              QStringLiteral("probe crashed"));
}

// The child dies with its parent, also mid-hang.
TEST(Vst3HostProgram, DiesWithItsParent)
{
    int pipefd[2];
    ASSERT_EQ(pipe(pipefd), 0);
    // Made before the forks: a child of a process with threads may not allocate.
    const std::string bundle = (kBundles + QStringLiteral("/vlor-vst3-hang-entry.vst3")).toStdString();
    const std::string prog = kHost.toStdString();
    const pid_t middle = fork();
    ASSERT_GE(middle, 0);
    if (middle == 0) {
        close(pipefd[0]);
        const pid_t host = fork();
        if (host == 0) {
            dup2(pipefd[1], STDOUT_FILENO);
            execl(prog.c_str(), prog.c_str(), "--probe", bundle.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        // Give the host time to reach the hanging plugin, then vanish.
        usleep(300 * 1000);
        _exit(0);
    }
    close(pipefd[1]);
    waitpid(middle, nullptr, 0);
    // The pipe's write end lives only in the host: end of file means it died.
    QElapsedTimer timer;
    timer.start();
    char buf[256];
    while (read(pipefd[0], buf, sizeof buf) > 0) {
    }
    close(pipefd[0]);
    EXPECT_LT(timer.elapsed(), 3000);
}

// What a plugin forks during a probe or verify ends with the host program,
// whether the host ends by itself, crashes or hangs past its time.
TEST(HostRun, WhatTheHostForksEndsWithIt)
{
    TempDir dir;
    const std::string pidFile = dir.file("grandchild.pid");
    for (const char* end : {"echo '{\"ok\":true}'", "kill -SEGV $$", "sleep 30"}) {
        std::remove(pidFile.c_str());
        const QString body = QStringLiteral("sleep 60 & echo $! > '%1'; %2").arg(QString::fromStdString(pidFile), QString::fromUtf8(end));
        run(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), body}, 500);
        const long grandchild = vlortest::pidFromFile(pidFile);
        ASSERT_GT(grandchild, 0) << end;
        EXPECT_FALSE(vlortest::processRuns(grandchild)) << end;
        if (vlortest::processRuns(grandchild, 0))
            kill(pid_t(grandchild), SIGKILL);
    }
}

// A factory that names its classes in Latin-1: the Unicode class information
// is taken where the factory offers it, and whatever else it says arrives as
// valid UTF-8, so the bundle probes and its classes verify.
TEST(Vst3HostProgram, NamesOfAnotherCodePageProbeAndVerify)
{
    const QString bundle = kBundles + QStringLiteral("/vlor-vst3-latin1.vst3");
    QProcess host;
    host.start(kHost, QVlorVst3::ProbeArguments(bundle));
    ASSERT_TRUE(host.waitForFinished(10000));
    const QByteArray raw = host.readAllStandardOutput();
    EXPECT_TRUE(QString::fromUtf8(raw).toUtf8() == raw) << raw.toStdString(); // nothing to repair on our side

    const Outcome o = run(kHost, QVlorVst3::ProbeArguments(bundle));
    ASSERT_TRUE(o.ok) << o.error.toStdString();
    const QJsonArray classes = o.reply.value(QStringLiteral("classes")).toArray();
    ASSERT_EQ(classes.size(), 4);
    EXPECT_EQ(classes[0].toObject().value(QStringLiteral("name")).toString(), QStringLiteral("Fixture Caf\u00E9 Gain"));
    EXPECT_EQ(classes[1].toObject().value(QStringLiteral("name")).toString(),
              QStringLiteral("Fixture Endless \uFFFDt\uFFFD"));
    QSet<QString> taken;
    EXPECT_EQ(QVlorVst3::ReplyClasses(o.reply, &taken).size(), 4);
    for (int i = 0; i < 2; ++i) {
        const QString cid = classes[i].toObject().value(QStringLiteral("cid")).toString();
        const Outcome v = run(kHost, QVlorVst3::VerifyArguments(bundle, cid));
        EXPECT_TRUE(v.ok) << v.error.toStdString();
    }
}
