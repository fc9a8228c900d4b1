#include "QKVSTManager.h"

#include "QKApplication.h"
#include "QKApplicationLog.h"
#include "QKFile.h"
#include "QKMenus.h"
#include "QKPluginCatalogueFiles.h"
#include "QKPluginValidationQueue.h"
#include "QKResponderChain.h"
#include "QKSplashScreen.h"

#include <QAction>
#include <QDir>
#include <QFileInfo>
#include <QMenu>
#include <QPointer>
#include <QSet>

namespace {

const QString LogDomain = QStringLiteral("QKVSTManager");

void warn(const QString &message)
{
    QKApplicationLog::sharedLog()->warning(QKApplicationLogContext(LogDomain), message);
}

// The folders between the plug-in folder and the file: the first folder, in walk order,
// that holds the path is the one the walk found it in.
QStringList menuFolders(const QString &path, const QStringList &roots)
{
    for (const QString &root : roots) {
        const QString prefix = root.endsWith(QLatin1Char('/')) ? root : root + QLatin1Char('/');
        if (path.startsWith(prefix)) {
            QStringList folders = path.mid(prefix.size()).split(QLatin1Char('/'));
            folders.removeLast();
            folders.removeAll(QString());
            return folders;
        }
    }
    return {};
}

// Names are shown as they are: an "&" in a file or folder name is no mnemonic.
QString menuText(QString title)
{
    return title.replace(QLatin1Char('&'), QLatin1String("&&"));
}

QMenu *submenuWithTitle(QMenu *menu, const QString &title)
{
    const QList<QAction *> items = menu->actions();
    for (QAction *item : items) {
        if (item->menu() && QKMenus::plainTitle(item->text()) == title)
            return item->menu();
    }
    QAction *item = QKMenus::addItemSortedWithTitle(menu, menuText(title), QByteArray());
    QObject::disconnect(item, &QAction::triggered, nullptr, nullptr);
    auto *submenu = new QMenu(title, menu);
    item->setMenu(submenu);
    return submenu;
}

} // namespace

struct QKVSTManager::Private
{
    explicit Private(const QString &code)
        : computerCode(code),
          files(LogDomain,
                QKFile::conformPath(
                    QStringLiteral("~/Library/Application Support/Velmora/vst_db.plist")),
                QKFile::conformPath(
                    QStringLiteral("~/Library/Application Support/Velmora/loading_vst.txt")))
    {}

    QString computerCode;
    QKPluginCatalogueFiles files;
    QList<QKVSTDescription> database;
    bool outOfProcess = false;
    // The validators of the validation under way, when it loads out of process.
    std::optional<QKPluginValidationQueue> validators;
    QStringList folders = QKVSTManager::standardPluginFolders();
    // Canonical folders walked during this validation: a link back up the tree, or two ways
    // into one folder, must not walk it again.
    QSet<QString> walked;
};

QKVSTManager::QKVSTManager(const QString &computerCode) : d(std::make_unique<Private>(computerCode))
{
    const QList<QVariantMap> states = d->files.readDatabase();
    for (const QVariantMap &state : states)
        d->database.append(QKVSTDescription::descriptionWithState(state));
}

QKVSTManager::~QKVSTManager() = default;

QStringList QKVSTManager::standardPluginFolders()
{
    QStringList folders = {QStringLiteral("/usr/lib/vst"), QStringLiteral("/usr/local/lib/vst"),
                           QKFile::conformPath(QStringLiteral("~/.vst")),
                           QStringLiteral("/usr/lib/lxvst"),
                           QKFile::conformPath(QStringLiteral("~/.lxvst"))};
    const QStringList extra =
        qEnvironmentVariable("VST_PATH").split(QLatin1Char(':'), Qt::SkipEmptyParts);
    for (const QString &folder : extra) {
        const QString path = QKFile::conformPath(folder);
        if (QDir::isAbsolutePath(path))
            folders.append(path);
        else
            warn(QStringLiteral("VST_PATH folder \"%1\" is not absolute; skipped").arg(folder));
    }
    return folders;
}

QStringList QKVSTManager::pluginFolders() const
{
    return d->folders;
}

void QKVSTManager::setPluginFolders(const QStringList &folders)
{
    d->folders.clear();
    for (const QString &folder : folders)
        d->folders.append(QKFile::conformPath(folder));
}

QString QKVSTManager::computerCode() const
{
    return d->computerCode;
}

QString QKVSTManager::databasePath() const
{
    return d->files.databasePath();
}

QString QKVSTManager::loadingFilePath() const
{
    return d->files.markerPath();
}

const QList<QKVSTDescription> &QKVSTManager::database() const
{
    return d->database;
}

void QKVSTManager::validate()
{
    QKSplashScreen::setAction(QStringLiteral("Locating VST Plug-ins"));
    _prune();
    _recoverFromCrash();
    d->walked.clear();
    if (d->outOfProcess) {
        d->validators = QKPluginValidationQueue::create(
            QStringLiteral("vst"), LogDomain,
            [this](qsizetype index, const QVariantMap &state, const QString &failure) {
                applyValidatorReply(index, state, failure);
            });
    }
    for (const QString &folder : std::as_const(d->folders)) {
        const QFileInfo info(folder);
        if (!info.exists())
            continue;
        if (!info.isDir()) {
            warn(QStringLiteral("the VST folder \"%1\" is not a folder; skipped").arg(folder));
            continue;
        }
        _loadDescriptionsForDirectory(folder);
    }
    if (d->validators) {
        d->validators->finish();
        d->validators.reset();
    }
}

void QKVSTManager::setValidatesOutOfProcess(bool outOfProcess)
{
    d->outOfProcess = outOfProcess;
}

bool QKVSTManager::validatesOutOfProcess() const
{
    return d->outOfProcess;
}

// An updated plug-in keeps its path, so the modification date is what tells it apart; it
// is dropped here and loaded afresh by the walk.
void QKVSTManager::_prune()
{
    const qsizetype before = d->database.size();
    d->database.removeIf([this](const QKVSTDescription &entry) {
        return entry.computerCode() != d->computerCode || !QKFile::existsAtPath(entry.path()) ||
               entry.modificationDate() != QKVSTDescription::modificationDateOfFile(entry.path());
    });
    if (d->database.size() != before)
        _saveDatabase();
}

// A marker left behind means the process died inside that plug-in's load: it is never
// loaded, nor offered, again.
void QKVSTManager::_recoverFromCrash()
{
    const std::optional<QByteArray> marker = d->files.readMarker();
    if (marker) {
        const QString path = QFile::decodeName(*marker);
        const qsizetype index = _descriptionForPath(path);
        if (index >= 0) {
            warn(QStringLiteral("\"%1\" stopped the process while it was loading; it is "
                                "ignored from now on")
                     .arg(path));
            d->database[index].setIgnore(true);
            _saveDatabase(index);
        } else {
            warn(QStringLiteral("the loading marker names no catalogued plug-in; removed"));
        }
    }
    d->files.removeMarker();
}

void QKVSTManager::_loadDescriptionsForDirectory(const QString &folder)
{
    const QString canonical = QFileInfo(folder).canonicalFilePath();
    if (d->walked.contains(canonical)) {
        warn(QStringLiteral("\"%1\" leads to a folder walked already (a link loop or a second "
                            "way in); skipped")
                 .arg(folder));
        return;
    }
    d->walked.insert(canonical);
    QString error;
    const QStringList names = QKFile::contentsOfDirectoryAtPath(folder, &error);
    if (!error.isEmpty()) {
        warn(QStringLiteral("cannot walk the VST folder: %1").arg(error));
        return;
    }
    for (const QString &name : names) {
        const QString path = folder + QLatin1Char('/') + name;
        const QFileInfo info(path);
        // A plug-in is a file; a folder is walked into whatever its name.
        if (info.isDir())
            _loadDescriptionsForDirectory(path);
        else if (info.isFile() && name.endsWith(QLatin1String(".so")))
            _addPlugin(path);
    }
}

void QKVSTManager::_addPlugin(const QString &path)
{
    if (_descriptionForPath(path) >= 0)
        return;
    QKVSTDescription entry = QKVSTDescription::descriptionWithPath(path);
    entry.setComputerCode(d->computerCode);
    d->database.append(entry);
    // Saved before the load, so that a crash inside it leaves an entry for the marker.
    _saveDatabase(d->database.size() - 1);
    if (d->validators) {
        QKSplashScreen::setActionIfVisible(QStringLiteral("Validating '%1'").arg(entry.filename()));
        d->validators->load(d->database.size() - 1, entry.state());
    } else {
        loadNewEntry(d->database.size() - 1);
    }
}

// What a validator learnt about the plug-in; one whose validator failed is never offered.
void QKVSTManager::applyValidatorReply(qsizetype index, const QVariantMap &state,
                                       const QString &failure)
{
    QKVSTDescription &entry = d->database[index];
    if (failure.isEmpty()) {
        entry.setState(state);
    } else {
        warn(QStringLiteral("validating \"%1\" failed (%2); it is ignored from now on")
                 .arg(entry.path(), failure));
        entry.setIgnore(true);
    }
    _saveDatabase(index);
}

void QKVSTManager::loadNewEntry(qsizetype index)
{
    QKVSTDescription &entry = d->database[index];
    QKSplashScreen::setActionIfVisible(QStringLiteral("Validating '%1'").arg(entry.filename()));
    d->files.writeMarker(QFile::encodeName(entry.path()));
    entry.load();
    d->files.removeMarker();
    _saveDatabase(index);
}

qsizetype QKVSTManager::_descriptionForPath(const QString &path) const
{
    for (qsizetype i = 0; i < d->database.size(); ++i) {
        if (d->database.at(i).path() == path)
            return i;
    }
    return -1;
}

void QKVSTManager::_saveDatabase(std::optional<qsizetype> changed) const
{
    d->files.saveDatabase(
        d->database.size(), [this](qsizetype i) { return d->database.at(i).state(); }, changed);
}

std::unique_ptr<QMenu> QKVSTManager::effectsMenuWithTarget(QObject *target,
                                                           const QByteArray &action) const
{
    return _menuWithTarget(target, action, false);
}

std::unique_ptr<QMenu> QKVSTManager::instrumentsMenuWithTarget(QObject *target,
                                                               const QByteArray &action) const
{
    return _menuWithTarget(target, action, true);
}

std::unique_ptr<QMenu> QKVSTManager::_menuWithTarget(QObject *target, const QByteArray &action,
                                                     bool isInstrument) const
{
    auto menu = std::make_unique<QMenu>();
    // Only a catalogue without any entry says so; one whose entries all belong to the other
    // menu, or are ignored, gives an empty menu.
    if (d->database.isEmpty()) {
        menu->addAction(QStringLiteral("No plug-ins found"))->setEnabled(false);
        return menu;
    }
    const QPointer<QObject> receiver(target);
    for (const QKVSTDescription &entry : std::as_const(d->database)) {
        if (entry.ignore() || !entry.isLoaded() || entry.isInstrument() != isInstrument)
            continue;
        QMenu *folderMenu = menu.get();
        const QStringList folders = menuFolders(entry.path(), d->folders);
        for (const QString &folder : folders)
            folderMenu = submenuWithTitle(folderMenu, folder);
        QAction *item =
            QKMenus::addItemSortedWithTitle(folderMenu, menuText(entry.filename()), action);
        item->setData(QVariant::fromValue(entry));
        QObject::disconnect(item, &QAction::triggered, nullptr, nullptr);
        const bool targeted = target != nullptr;
        QObject::connect(item, &QAction::triggered, item, [item, receiver, targeted, action] {
            // A target that has gone away gets nothing; the chain was not asked for.
            if (targeted && !receiver)
                return;
            QKResponderChain::sendAction(action, receiver.data(), item);
        });
    }
    return menu;
}
