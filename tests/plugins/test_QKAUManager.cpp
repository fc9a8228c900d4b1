#include "QKAUManager.h"

#include "QKApplicationLog.h"
#include "QKException.h"
#include "QKPropertyList.h"
#include "QKTestEnvironment.h"

#include <QAction>
#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMenu>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

using namespace Qt::StringLiterals;

namespace {

const QString Machine = u"machine-1"_s;
constexpr quint32 Effect = 0x61756678, MusicEffect = 0x61756D66, Instrument = 0x61756D75,
                  Generator = 0x6175676E;

QString bundleFolder(const QString &bundle)
{
    return QStringLiteral(QK_TEST_LV2_BUNDLES "/") + bundle;
}

void installBundles(const QStringList &folders)
{
    qputenv("LV2_PATH", folders.join(u':').toLocal8Bit());
}

void installTestBundles(const QStringList &bundles)
{
    QStringList folders;
    for (const QString &bundle : bundles)
        folders.append(bundleFolder(bundle));
    installBundles(folders);
}

QByteArray description(quint32 type, const char *name)
{
    QByteArray bytes(20, '\0');
    std::memcpy(bytes.data(), &type, 4);
    const QByteArray digest = QCryptographicHash::hash(
        QByteArray("http://example.org/qk-test/") + name, QCryptographicHash::Sha1);
    std::memcpy(bytes.data() + 4, digest.constData(), 16);
    return bytes;
}

QString dataFolder()
{
    return QKTestEnvironment::homeFile(u".local/share/Velmora"_s);
}

QString logText()
{
    return QString::fromUtf8(
        QKTestEnvironment::readAll(QKApplicationLog::sharedLog()->logFilePath()));
}

// Counts the writes of the database as the kernel sees them: one closed write per save. Opens
// are watched too, only so that the kernel never merges two saves in a row into one event.
class SaveCounter
{
public:
    SaveCounter() : m_fd(inotify_init1(IN_NONBLOCK))
    {
        QDir().mkpath(dataFolder());
        inotify_add_watch(m_fd, QFile::encodeName(dataFolder()).constData(),
                          IN_OPEN | IN_CLOSE_WRITE);
    }
    ~SaveCounter() { ::close(m_fd); }

    int saves()
    {
        alignas(inotify_event) char buffer[4096];
        ssize_t length;
        while ((length = ::read(m_fd, buffer, sizeof buffer)) > 0) {
            for (char *p = buffer; p < buffer + length;) {
                const auto *event = reinterpret_cast<const inotify_event *>(p);
                if ((event->mask & IN_CLOSE_WRITE) && event->len &&
                    std::strcmp(event->name, "au_db.plist") == 0)
                    ++m_saves;
                p += sizeof(inotify_event) + event->len;
            }
        }
        return m_saves;
    }

private:
    int m_fd;
    int m_saves = 0;
};

QStringList titles(const QMenu *menu)
{
    QStringList list;
    for (const QAction *item : menu->actions())
        list.append(item->text());
    return list;
}

// The child of the crash and cache tests: validates in the parent's HOME, where the crash
// test's plug-in kills it.
class CrashingValidationChild : public ::testing::Environment
{
public:
    void SetUp() override
    {
        const QByteArray home = qgetenv("QK_AU_CRASH_CHILD_HOME");
        if (home.isEmpty())
            return;
        QDir(QKTestEnvironment::homePath()).removeRecursively();
        qputenv("HOME", home);
        QKAUManager(Machine).validate();
        std::_Exit(3); // validated to the end
    }
};

[[maybe_unused]] ::testing::Environment *const crashChild =
    ::testing::AddGlobalTestEnvironment(new CrashingValidationChild);

class QKAUManagerTest : public ::testing::Test
{
protected:
    void SetUp() override { installTestBundles({u"basic"_s}); }
};

} // namespace

TEST_F(QKAUManagerTest, firstRunCataloguesEveryUnitInTypeOrderSavingTwiceEach)
{
    SaveCounter counter;
    QKAUManager manager(Machine);
    manager.validate();

    struct Expected
    {
        QByteArray description;
        QString manufacturer, name;
        bool monoIn, monoOut, stereoIn, stereoOut, multiIn, multiOut;
        bool effect, instrument, player;
    };
    // Types in the order 'aufx', 'aumf', 'aumu', 'augn'. The arpeggiator's maker comes from
    // its project; the noise generator only instantiates when the host's features work.
    const Expected expected[] = {
        {description(Effect, "delay"), u"Acme"_s, u"Delay"_s, true, true, false, false, false,
         false, true, false, false},
        {description(MusicEffect, "arpeggiator"), u"Zed"_s, u"Arpeggiator"_s, false, false, true,
         true, false, false, true, false, false},
        {description(Instrument, "piano"), u"Able"_s, u"Piano"_s, false, false, false, true, false,
         false, false, true, false},
        {description(Generator, "noise"), u"Able"_s, u"Noise"_s, false, false, false, false, false,
         true, false, false, true},
    };
    const QList<QKAUDescription> &database = manager.database();
    ASSERT_EQ(database.size(), 4);
    for (int i = 0; i < 4; ++i) {
        SCOPED_TRACE(expected[i].name.toStdString());
        const QKAUDescription &entry = database.at(i);
        EXPECT_EQ(entry.componentDescription(), expected[i].description);
        EXPECT_EQ(entry.computerCode(), Machine);
        EXPECT_EQ(entry.manufacturer(), expected[i].manufacturer);
        EXPECT_EQ(entry.name(), expected[i].name);
        EXPECT_EQ(entry.supportsMonoInput(), expected[i].monoIn);
        EXPECT_EQ(entry.supportsMonoOutput(), expected[i].monoOut);
        EXPECT_EQ(entry.supportsStereoInput(), expected[i].stereoIn);
        EXPECT_EQ(entry.supportsStereoOutput(), expected[i].stereoOut);
        EXPECT_EQ(entry.supportsMultichannelInput(), expected[i].multiIn);
        EXPECT_EQ(entry.supportsMultichannelOutput(), expected[i].multiOut);
        EXPECT_EQ(entry.isEffect(), expected[i].effect);
        EXPECT_EQ(entry.isInstrument(), expected[i].instrument);
        EXPECT_EQ(entry.isPlayer(), expected[i].player);
        EXPECT_FALSE(entry.ignore());
    }
    EXPECT_EQ(counter.saves(), 8);
    EXPECT_FALSE(QFileInfo::exists(manager.loadingComponentPath()));

    // The file gives the same catalogue back, and a second run loads and saves nothing.
    QKAUManager reread(Machine);
    EXPECT_EQ(reread.database(), database);
    reread.validate();
    EXPECT_EQ(counter.saves(), 8);
}

TEST_F(QKAUManagerTest, markerLeftByACrashIsResolvedBeforeAnythingLoads)
{
    struct Case
    {
        const char *what;
        QByteArray marker;
        QByteArray ignored; // empty: nothing changes
        int saves;
    };
    const Case cases[] = {
        {"catalogued unit", description(Instrument, "piano"), description(Instrument, "piano"), 1},
        {"unknown unit", description(Effect, "elsewhere"), {}, 0},
        {"wrong length", QByteArray("piano"), {}, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        QFile::remove(QKAUManager(Machine).databasePath());
        QKAUManager(Machine).validate();
        QKAUManager manager(Machine);
        ASSERT_TRUE(QKTestEnvironment::writeAll(manager.loadingComponentPath(), c.marker));
        SaveCounter counter;
        manager.validate();
        EXPECT_FALSE(QFileInfo::exists(manager.loadingComponentPath()));
        EXPECT_EQ(counter.saves(), c.saves);
        ASSERT_EQ(manager.database().size(), 4);
        for (const QKAUDescription &entry : manager.database())
            EXPECT_EQ(entry.ignore(), entry.componentDescription() == c.ignored);
        EXPECT_EQ(manager.instrumentsMenuWithTarget(nullptr, "choose:")->isEmpty(),
                  !c.ignored.isEmpty());
    }
    EXPECT_TRUE(logText().contains(u"holds 5 bytes"_s));
}

TEST_F(QKAUManagerTest, removedBundlesAndOtherMachinesArePrunedWithOneSave)
{
    // A copy of the bundle that can be uninstalled while the process runs.
    QTemporaryDir folder;
    const QString bundle = folder.filePath(u"qk-basic.lv2"_s);
    QDir().mkpath(bundle);
    const QString installed = bundleFolder(u"basic/qk-basic.lv2/"_s);
    for (const QString &name : QDir(installed).entryList(QDir::Files))
        QFile::copy(installed + name, bundle + u'/' + name);
    installBundles({folder.path(), bundleFolder(u"unsupported"_s)});
    QKAUManager(Machine).validate();

    QKAUManager cataloguer(Machine);
    QVariantList states = QKPropertyList::readFile(cataloguer.databasePath()).toList();
    QVariantMap foreign = states.at(0).toMap();
    foreign[u"computerCode"_s] = u"machine-0"_s;
    QVariantMap uninstalled = states.at(0).toMap();
    uninstalled[u"componentDescription"_s] = description(Effect, "uninstalled");
    states << foreign << uninstalled;
    ASSERT_TRUE(QKPropertyList::writeFile(states, cataloguer.databasePath()));

    SaveCounter counter;
    QKAUManager manager(Machine);
    EXPECT_EQ(manager.database().size(), 7);
    manager.validate();
    EXPECT_EQ(counter.saves(), 1);
    ASSERT_EQ(manager.database().size(), 5);
    EXPECT_EQ(manager.database(), cataloguer.database());

    QDir(bundle).removeRecursively();
    manager.validate();
    EXPECT_EQ(counter.saves(), 2);
    ASSERT_EQ(manager.database().size(), 1);
    EXPECT_EQ(manager.database().at(0).name(), u"Teleport"_s);
}

TEST_F(QKAUManagerTest, unitNeedingAFeatureTheHostLacksIsCataloguedUnopened)
{
    installTestBundles({u"unsupported"_s});
    QKAUManager manager(Machine);
    manager.validate();
    ASSERT_EQ(manager.database().size(), 1);
    const QKAUDescription teleport = manager.database().at(0);
    EXPECT_EQ(teleport.manufacturer(), u"Acme"_s);
    EXPECT_FALSE(teleport.supportsMonoInput() || teleport.supportsMonoOutput());
    EXPECT_TRUE(logText().contains(u"http://example.org/qk-test/ns#teleportation"_s));
}

TEST_F(QKAUManagerTest, nameWithoutMakerStopsValidationAndIsIgnoredNextTime)
{
    installTestBundles({u"nomaker"_s, u"basic"_s});
    {
        QKAUManager manager(Machine);
        EXPECT_THROW(manager.validate(), QKException);
        EXPECT_EQ(QKTestEnvironment::readAll(manager.loadingComponentPath()),
                  description(Effect, "anonymous"));
    }
    QKAUManager manager(Machine);
    EXPECT_NO_THROW(manager.validate());
    ASSERT_EQ(manager.database().size(), 5);
    EXPECT_TRUE(manager.database().at(0).ignore());
    EXPECT_EQ(titles(manager.effectsMenuWithTarget(nullptr, "choose:").get()),
              QStringList({u"Able"_s, u"Acme"_s, u"Zed"_s}));
}

// A unit may leave a thread running its code after it was freed. Unloading that code under the
// thread would take the host down a moment after validation.
TEST_F(QKAUManagerTest, unitThatLeavesAThreadRunningDoesNotTakeTheHostDown)
{
    installTestBundles({u"basic"_s, u"busy"_s});
    QKAUManager manager(Machine);
    manager.validate();
    const QList<QKAUDescription> &database = manager.database();
    const auto busy = std::find_if(database.cbegin(), database.cend(), [](const auto &entry) {
        return entry.componentDescription() == description(Effect, "busy");
    });
    ASSERT_NE(busy, database.cend());
    EXPECT_EQ(busy->name(), u"Busy"_s);
    EXPECT_TRUE(busy->supportsMonoInput());
    // The thread wakes every half millisecond; it would have met unmapped code by now.
    QThread::msleep(200);
}

// Replaces @p from with @p to (as long) in the file at @p path without changing its size, its
// date or the folder around it, as only a deliberate edit would.
void editInPlace(const QString &path, const QByteArray &from, const QByteArray &to)
{
    const QDateTime modified = QFileInfo(path).lastModified();
    QByteArray text = QKTestEnvironment::readAll(path);
    ASSERT_TRUE(text.contains(from));
    text.replace(from, to);
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    ASSERT_EQ(file.write(text), text.size());
    ASSERT_TRUE(file.flush()); // a later flush would date the file anew
    ASSERT_TRUE(file.setFileTime(modified, QFileDevice::FileModificationTime));
}

// Validates in a child process, in this test's HOME and with its LV2 path.
// Runs @p child, a copy of this program that validates in this test's HOME with its LV2
// path, to its end; false when it did not end in time.
bool runValidatingChild(QProcess &child, QProcessEnvironment environment)
{
    environment.insert(u"QK_AU_CRASH_CHILD_HOME"_s, QKTestEnvironment::homePath());
    child.setProcessEnvironment(environment);
    child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    child.start(QCoreApplication::applicationFilePath(), {u"--gtest_filter=QKAUManagerTest.*"_s});
    return child.waitForFinished(60000);
}

// Validates in a child process that ends normally.
bool validateInChild()
{
    QProcess child;
    return runValidatingChild(child, QProcessEnvironment::systemEnvironment()) &&
           child.exitCode() == 3;
}

QList<QByteArray> catalogued(const QKAUManager &manager)
{
    QList<QByteArray> descriptions;
    for (const QKAUDescription &entry : manager.database())
        descriptions.append(entry.componentDescription());
    return descriptions;
}

// A later process lists the units without reading the bundles while they are as an earlier
// one found them; any change to their files has them read again.
TEST_F(QKAUManagerTest, unchangedBundlesAreListedWithoutBeingReadAgain)
{
    // A copy of its own, since the test edits it.
    const QString folder = QKTestEnvironment::homeFile(u"lv2"_s);
    const QString bundle = folder + u"/qk-basic.lv2"_s;
    ASSERT_TRUE(QDir().mkpath(bundle));
    for (const QString &name : {u"manifest.ttl"_s, u"plugins.ttl"_s, u"qktestplugins.so"_s}) {
        ASSERT_TRUE(QFile::copy(bundleFolder(u"basic"_s) + u"/qk-basic.lv2/"_s + name,
                                bundle + u'/' + name));
    }
    installBundles({folder});
    ASSERT_TRUE(validateInChild());

    // The delay's URI changes while sizes and dates stay: only the kept list still has it.
    for (const QString &name : {u"manifest.ttl"_s, u"plugins.ttl"_s})
        editInPlace(bundle + u'/' + name, "qk-test/delay>", "qk-test/delaz>");
    const QByteArray delay = description(Effect, "delay");
    const QByteArray delaz = description(Effect, "delaz");
    QKAUManager manager(Machine);
    manager.validate();
    EXPECT_TRUE(catalogued(manager).contains(delay));
    EXPECT_FALSE(catalogued(manager).contains(delaz));

    // A newer date on one file: the bundle is read again.
    QFile manifest(bundle + u"/manifest.ttl"_s);
    ASSERT_TRUE(manifest.open(QIODevice::ReadWrite));
    ASSERT_TRUE(manifest.setFileTime(QDateTime::currentDateTime().addSecs(60),
                                     QFileDevice::FileModificationTime));
    manifest.close();
    manager.validate();
    EXPECT_FALSE(catalogued(manager).contains(delay));
    EXPECT_TRUE(catalogued(manager).contains(delaz));

    // A damaged list is logged, read past and made again.
    const QString kept = QDir(QKTestEnvironment::homeFile(u".cache/QKUtilities"_s))
                             .entryInfoList(QDir::Files)
                             .value(0)
                             .filePath();
    ASSERT_TRUE(QKTestEnvironment::writeAll(kept, "garbage\n"));
    ASSERT_TRUE(validateInChild());
    EXPECT_TRUE(logText().contains(u"the LV2 description cache "_s + kept + u" is damaged"_s));
    EXPECT_TRUE(QKTestEnvironment::readAll(kept).startsWith("QKUtilities LV2 descriptions 1\n"));
    EXPECT_TRUE(catalogued(QKAUManager(Machine)).contains(delaz));
}

TEST_F(QKAUManagerTest, unitThatCrashesTheProcessIsIgnoredByTheNextValidation)
{
    installTestBundles({u"basic"_s, u"crash"_s});
    QProcess child;
    ASSERT_TRUE(runValidatingChild(child, QKTestEnvironment::crashingChildEnvironment()));
    EXPECT_EQ(child.exitStatus(), QProcess::CrashExit);

    const QByteArray crasher = description(Effect, "crasher");
    QKAUManager manager(Machine);
    EXPECT_EQ(QKTestEnvironment::readAll(manager.loadingComponentPath()), crasher);
    manager.validate();
    ASSERT_EQ(manager.database().size(), 5);
    EXPECT_EQ(manager.database().at(0).componentDescription(), crasher);
    EXPECT_TRUE(manager.database().at(0).ignore());
    const auto effects = manager.effectsMenuWithTarget(nullptr, "choose:");
    const QAction *acme = effects->actions().at(1);
    ASSERT_EQ(acme->text(), u"Acme"_s);
    EXPECT_EQ(titles(acme->menu()), QStringList{u"Delay"_s});
}

namespace {

class Chooser : public QObject
{
    Q_OBJECT
public:
    Q_INVOKABLE void choose(QObject *sender) { chosen = qobject_cast<QAction *>(sender)->data(); }
    QVariant chosen;
};

QVariantMap entryState(quint32 type, const char *uri, const QString &maker, const QString &name,
                       bool ignore = false)
{
    return QKAUDescription::descriptionWithState(
               {{u"componentDescription"_s, description(type, uri)},
                {u"computerCode"_s, Machine},
                {u"manufacturer"_s, maker},
                {u"name"_s, name},
                {u"ignore"_s, ignore}})
        .state();
}

} // namespace

TEST_F(QKAUManagerTest, menusGroupByMakerInTitleOrderAndSendToTheTarget)
{
    const QVariantList states = {
        entryState(Effect, "z1", u"Zed"_s, u"Reverb"_s),
        entryState(Generator, "a1", u"Able"_s, u"Tone"_s),
        entryState(MusicEffect, "a2", u"Able"_s, u"Gate"_s),
        entryState(Effect, "z2", u"Zed"_s, u"Broken"_s, true),
        entryState(Effect, "d1", u"Drum & Bass"_s, u"Kick"_s),
        entryState(Instrument, "z3", u"Zed"_s, u"Organ"_s),
    };
    ASSERT_TRUE(QKTestEnvironment::writeAll(QKAUManager(Machine).databasePath(),
                                            QKPropertyList::toData(states)));
    QKAUManager manager(Machine);
    Chooser chooser;
    const auto effects = manager.effectsMenuWithTarget(&chooser, "choose:");
    ASSERT_EQ(titles(effects.get()), QStringList({u"Able"_s, u"Drum && Bass"_s, u"Zed"_s}));
    EXPECT_EQ(titles(effects->actions().at(0)->menu()), QStringList({u"Gate"_s, u"Tone"_s}));
    EXPECT_EQ(titles(effects->actions().at(2)->menu()), QStringList{u"Reverb"_s});

    const auto instruments = manager.instrumentsMenuWithTarget(&chooser, "choose:");
    ASSERT_EQ(titles(instruments.get()), QStringList{u"Zed"_s});
    instruments->actions().at(0)->menu()->actions().at(0)->trigger();
    EXPECT_EQ(chooser.chosen, QVariant(description(Instrument, "z3")));
}

TEST_F(QKAUManagerTest, damagedDatabaseEntriesAreSkippedAndLogged)
{
    const QVariantList states = {
        entryState(Effect, "kept", u"Acme"_s, u"Kept"_s),
        QVariantMap{{u"componentDescription"_s, QByteArray("short")}},
        QVariantMap{{u"componentDescription"_s, u"a string of twenty ch"_s}},
        QVariantMap{{u"name"_s, u"no description"_s}},
        u"not a dictionary"_s,
    };
    ASSERT_TRUE(QKTestEnvironment::writeAll(QKAUManager(Machine).databasePath(),
                                            QKPropertyList::toData(states)));
    QKAUManager manager(Machine);
    ASSERT_EQ(manager.database().size(), 1);
    EXPECT_EQ(manager.database().at(0).name(), u"Kept"_s);
    EXPECT_EQ(logText().count(u"has no 20-byte component description"_s), 3);
    manager.validate();
    EXPECT_EQ(manager.database().size(), 4);

    ASSERT_TRUE(QKTestEnvironment::writeAll(manager.databasePath(), "garbage \x01\x02"));
    QKAUManager rebuilt(Machine);
    EXPECT_TRUE(rebuilt.database().isEmpty());
    rebuilt.validate();
    EXPECT_EQ(rebuilt.database().size(), 4);
}

TEST_F(QKAUManagerTest, hostilePluginFoldersAreSkippedAndLogged)
{
    QTemporaryDir folder;
    const QString notAFolder = folder.filePath(u"file"_s);
    const QString looping = folder.filePath(u"looping"_s);
    const QString malformed = folder.filePath(u"malformed"_s);
    ASSERT_TRUE(QKTestEnvironment::writeAll(notAFolder, "not a folder"));
    QDir().mkpath(looping);
    ASSERT_TRUE(QFile::link(looping + u"/b.lv2"_s, looping + u"/a.lv2"_s));
    ASSERT_TRUE(QFile::link(looping + u"/a.lv2"_s, looping + u"/b.lv2"_s));
    ASSERT_TRUE(QKTestEnvironment::writeAll(malformed + u"/bad.lv2/manifest.ttl"_s,
                                            "<urn:x> a <<< not turtle ;;"));
    ASSERT_TRUE(QKTestEnvironment::writeAll(malformed + u"/nobinary.lv2/manifest.ttl"_s,
                                            "<urn:qk:nobinary> a "
                                            "<http://lv2plug.in/ns/lv2core#Plugin> ."));
    installBundles(
        {notAFolder, looping, malformed, folder.filePath(u"missing"_s), bundleFolder(u"basic"_s)});

    QKAUManager manager(Machine);
    manager.validate();
    EXPECT_EQ(manager.database().size(), 4);
    const QString log = logText();
    EXPECT_TRUE(log.contains(u"the LV2 folder %1 is not a folder"_s.arg(notAFolder)));
    EXPECT_TRUE(log.contains(u"the LV2 bundle %1/a.lv2 is a broken or looping"_s.arg(looping)));
    EXPECT_TRUE(log.contains(u"the LV2 plug-in urn:qk:nobinary is described incompletely"_s));
}

#include "test_QKAUManager.moc"
