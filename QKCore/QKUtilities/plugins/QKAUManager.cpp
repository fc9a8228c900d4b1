#include "QKAUManager.h"

#include "QKApplicationLog.h"
#include "QKFile.h"
#include "QKLV2Host.h"
#include "QKMenus.h"
#include "QKPluginCatalogueFiles.h"
#include "QKPluginValidationQueue.h"
#include "QKResponderChain.h"
#include "QKSplashScreen.h"

#include <QAction>
#include <QMenu>
#include <QSet>

namespace {

const QString LogDomain = QStringLiteral("QKAUManager");
constexpr qsizetype DescriptionSize = 20;

// Makers and names are plain text; a single '&' would become a mnemonic and vanish.
QString literalTitle(QString title)
{
    return title.replace(QLatin1Char('&'), QStringLiteral("&&"));
}

} // namespace

struct QKAUManager::Private
{
    Private(const QString &code)
        : computerCode(code),
          files(LogDomain,
                QKFile::conformPath(
                    QStringLiteral("~/Library/Application Support/Velmora/au_db.plist")),
                QKFile::conformPath(
                    QStringLiteral("~/Library/Application Support/Velmora/loading_au.txt")))
    {}

    QString computerCode;
    QKPluginCatalogueFiles files;
    QList<QKAUDescription> database;
    bool outOfProcess = false;
};

QKAUManager::QKAUManager(const QString &computerCode) : d(std::make_unique<Private>(computerCode))
{
    const QList<QVariantMap> states = d->files.readDatabase();
    for (qsizetype i = 0; i < states.size(); ++i) {
        const QKAUDescription description = QKAUDescription::descriptionWithState(states.at(i));
        // Without its 20 bytes an entry names no unit and could never be matched or pruned.
        if (description.componentDescription().size() != DescriptionSize) {
            QKApplicationLog::sharedLog()->warning(
                QKApplicationLogContext(LogDomain),
                QStringLiteral("entry %1 of %2 has no 20-byte component description; skipped")
                    .arg(i)
                    .arg(d->files.databasePath()));
            continue;
        }
        d->database.append(description);
    }
}

QKAUManager::~QKAUManager() = default;

QString QKAUManager::computerCode() const
{
    return d->computerCode;
}

QString QKAUManager::databasePath() const
{
    return d->files.databasePath();
}

QString QKAUManager::loadingComponentPath() const
{
    return d->files.markerPath();
}

const QList<QKAUDescription> &QKAUManager::database() const
{
    return d->database;
}

void QKAUManager::validate()
{
    QKSplashScreen::setAction(QStringLiteral("Locating Audio Units"));
    const QList<QByteArray> found = QKLV2Host::shared().componentDescriptions();
    _prune(found);
    _recoverFromCrash();
    std::optional<QKPluginValidationQueue> validators;
    if (d->outOfProcess) {
        validators = QKPluginValidationQueue::create(
            QStringLiteral("au"), LogDomain,
            [this](qsizetype index, const QVariantMap &state, const QString &failure) {
                applyValidatorReply(index, state, failure);
            });
    }
    for (const QByteArray &description : found) {
        if (_indexOfComponentDescription(description) >= 0)
            continue;
        QKAUDescription entry;
        entry.setComponentDescription(description);
        entry.setComputerCode(d->computerCode);
        d->database.append(entry);
        // Saved before loading, so the entry exists when the unit takes the process down.
        _saveDatabase(d->database.size() - 1);
        if (validators)
            validators->load(d->database.size() - 1, entry.state());
        else
            loadNewEntry(d->database.size() - 1);
    }
    if (validators)
        validators->finish();
}

void QKAUManager::setValidatesOutOfProcess(bool outOfProcess)
{
    d->outOfProcess = outOfProcess;
}

bool QKAUManager::validatesOutOfProcess() const
{
    return d->outOfProcess;
}

void QKAUManager::_prune(const QList<QByteArray> &found)
{
    const QSet<QByteArray> installed(found.cbegin(), found.cend());
    const qsizetype removed = d->database.removeIf([&](const QKAUDescription &entry) {
        return entry.computerCode() != d->computerCode ||
               !installed.contains(entry.componentDescription());
    });
    if (removed > 0)
        _saveDatabase();
}

// A marker left behind means the process died while loading that unit: it is never loaded
// or offered again.
void QKAUManager::_recoverFromCrash()
{
    const std::optional<QByteArray> marker = d->files.readMarker();
    if (!marker)
        return;
    if (marker->size() != DescriptionSize) {
        QKApplicationLog::sharedLog()->warning(
            QKApplicationLogContext(LogDomain),
            QStringLiteral("the loading marker %1 holds %2 bytes, not a 20-byte component "
                           "description; removed")
                .arg(d->files.markerPath())
                .arg(marker->size()));
    } else if (const qsizetype index = _indexOfComponentDescription(*marker); index >= 0) {
        QKAUDescription &entry = d->database[index];
        QKApplicationLog::sharedLog()->warning(
            QKApplicationLogContext(LogDomain),
            QStringLiteral("'%1: %2' stopped the process while loading; it is ignored from now on")
                .arg(entry.manufacturer(), entry.name()));
        entry.setIgnore(true);
        _saveDatabase(index);
    }
    d->files.removeMarker();
}

void QKAUManager::loadNewEntry(qsizetype index)
{
    QKAUDescription &entry = d->database[index];
    d->files.writeMarker(entry.componentDescription());
    // An exception leaves the marker: the next validation ignores this unit.
    entry.load();
    d->files.removeMarker();
    _saveDatabase(index);
}

// What a validator learnt about the unit; a unit whose validator failed is never offered.
void QKAUManager::applyValidatorReply(qsizetype index, const QVariantMap &state,
                                      const QString &failure)
{
    QKAUDescription &entry = d->database[index];
    if (failure.isEmpty()) {
        entry.setState(state);
        QKSplashScreen::setActionIfVisible(QStringLiteral("Validating '%1'").arg(entry.name()));
    } else {
        QKApplicationLog::sharedLog()->warning(
            QKApplicationLogContext(LogDomain),
            QStringLiteral("validating the unit %1 failed (%2); it is ignored from now on")
                .arg(QString::fromLatin1(entry.componentDescription().toHex()), failure));
        entry.setIgnore(true);
    }
    _saveDatabase(index);
}

void QKAUManager::_saveDatabase(std::optional<qsizetype> changed) const
{
    d->files.saveDatabase(
        d->database.size(), [this](qsizetype i) { return d->database.at(i).state(); }, changed);
}

qsizetype QKAUManager::_indexOfComponentDescription(const QByteArray &description) const
{
    for (qsizetype i = 0; i < d->database.size(); ++i) {
        if (d->database.at(i).componentDescription() == description)
            return i;
    }
    return -1;
}

std::unique_ptr<QMenu> QKAUManager::effectsMenuWithTarget(QObject *target,
                                                          const QByteArray &action) const
{
    return _menuWithTarget(target, action, false);
}

std::unique_ptr<QMenu> QKAUManager::instrumentsMenuWithTarget(QObject *target,
                                                              const QByteArray &action) const
{
    return _menuWithTarget(target, action, true);
}

std::unique_ptr<QMenu> QKAUManager::_menuWithTarget(QObject *target, const QByteArray &action,
                                                    bool isInstrument) const
{
    auto menu = std::make_unique<QMenu>();
    for (const QKAUDescription &entry : d->database) {
        if (entry.ignore() || entry.isInstrument() != isInstrument)
            continue;
        QAction *makerItem = QKMenus::itemWithTitle(menu.get(), entry.manufacturer());
        if (!makerItem) {
            makerItem =
                QKMenus::addItemSortedWithTitle(menu.get(), literalTitle(entry.manufacturer()), {});
            makerItem->setMenu(new QMenu(literalTitle(entry.manufacturer()), menu.get()));
        }
        QAction *item =
            QKMenus::addItemSortedWithTitle(makerItem->menu(), literalTitle(entry.name()), action);
        item->setData(entry.componentDescription());
        if (target) {
            // The item goes to its own target instead of along the responder chain.
            QObject::disconnect(item, &QAction::triggered, nullptr, nullptr);
            QObject::connect(item, &QAction::triggered, target, [item, target, action] {
                QKResponderChain::sendAction(action, target, item);
            });
        }
    }
    return menu;
}
