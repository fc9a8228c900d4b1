#include "SoundLabWindow.h"

#include "SoundLabInfoDialog.h"
#include "SoundLabInfraredRemote.h"
#include "SoundLabLevelMeter.h"
#include "SoundLabPlugins.h"
#include "SoundLabPreferences.h"
#include "SoundLabSettings.h"
#include "SoundLabSignalGenerator.h"
#include "SoundLabSiteDialog.h"
#include "SoundLabWiiRemote.h"

#include <QKAboutPanel.h>
#include <QKAlert.h>
#include <QKApplication.h>
#include <QKApplicationLog.h>
#include <QKException.h>
#include <QKHelpDesk.h>
#include <QKKeyboardShortcuts.h>
#include <QKMenus.h>
#include <QKMeterController.h>
#include <QKSupportSite.h>
#include <QKUserDefaults.h>
#include <QKWorkspace.h>

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QSplitter>
#include <QStandardItemModel>
#include <QStatusBar>
#include <QTableView>
#include <QTimer>
#include <QUrl>
#include <QVBoxLayout>

#include <cstdio>

SoundLabWindow::SoundLabWindow(QWidget *parent)
    : QMainWindow(parent), m_tracks(new QStandardItemModel(0, 3, this)),
      m_trackTable(new QTableView), m_notes(new QPlainTextEdit), m_transportLabel(new QLabel),
      m_playTimer(new QTimer(this)), m_levelMeter(new SoundLabLevelMeter),
      m_generator(new SoundLabSignalGenerator(2, this)),
      m_infraredRemote(new SoundLabInfraredRemote(this, m_generator)),
      m_wiiRemote(new SoundLabWiiRemote(this, m_generator))
{
    setWindowTitle(QKApplication::sharedApplication()->name());
    m_tracks->setHorizontalHeaderLabels({tr("Track"), tr("Instrument"), tr("Volume")});
    m_trackTable->setObjectName(QStringLiteral("trackTable"));
    m_trackTable->setModel(m_tracks);
    m_trackTable->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_trackTable->horizontalHeader()->setStretchLastSection(true);
    m_notes->setObjectName(QStringLiteral("notes"));
    m_notes->setPlaceholderText(tr("Session notes…"));
    m_transportLabel->setObjectName(QStringLiteral("transport"));

    auto *splitter = new QSplitter(Qt::Vertical);
    splitter->addWidget(m_trackTable);
    splitter->addWidget(m_notes);
    auto *central = new QWidget;
    auto *layout = new QVBoxLayout(central);
    auto *transportRow = new QHBoxLayout;
    transportRow->addWidget(m_transportLabel, 1);
    transportRow->addWidget(m_levelMeter);
    layout->addLayout(transportRow);
    layout->addWidget(splitter);
    setCentralWidget(central);

    m_playTimer->setInterval(100);
    connect(m_playTimer, &QTimer::timeout, this, [this] {
        m_position += 0.1;
        updateTransport();
    });

    buildMenus();
    for (const char *name : {"Drums", "Bass", "Keys"}) {
        newTrack(nullptr);
        m_tracks->setData(m_tracks->index(m_tracks->rowCount() - 1, 0), QString::fromLatin1(name));
    }
    updateTransport();
    restoreFrame();

    connect(qApp, &QApplication::focusChanged, this, [](QWidget *, QWidget *now) {
        if (now)
            trace(QStringLiteral("focus %1").arg(now->objectName()));
    });
    connect(m_trackTable->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
            [](const QModelIndex &current) {
                trace(QStringLiteral("track row %1").arg(current.row()));
            });
    connect(m_notes, &QPlainTextEdit::textChanged, this, [this] {
        trace(QStringLiteral("notes %1").arg(m_notes->toPlainText().replace('\n', "\\n")));
    });
    connect(QKPreferencesPanel::sharedInstance<SoundLabPreferences>(),
            &SoundLabPreferences::settingsChanged, this, &SoundLabWindow::applySettings);
    applySettings();
    QKMeterController::defaultController()->addMeter(m_levelMeter->meter());
    m_generator->start();
}

void SoundLabWindow::trace(const QString &line)
{
    static const bool enabled = qEnvironmentVariableIsSet("SOUNDLAB_TRACE");
    if (!enabled)
        return;
    std::fprintf(stderr, "trace: %s\n", line.toUtf8().constData());
    std::fflush(stderr);
}

void SoundLabWindow::traceAction(const char *action, const QObject *sender)
{
    // Actions Sound Lab performs on its own (the first tracks) have no sender.
    if (sender)
        trace(QStringLiteral("action %1 from %2")
                  .arg(QLatin1String(action), QLatin1String(sender->metaObject()->className())));
}

namespace {
const QString FrameKey = QStringLiteral("Sound Lab Window Frame");
}

void SoundLabWindow::restoreFrame()
{
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    defaults->registerDefaults({{FrameKey, NSStringFromRect(QRectF(80, 80, 720, 480))}});
    const QRect frame = NSRectFromString(defaults->stringForKey(FrameKey)).toRect();
    if (frame.width() > 100 && frame.height() > 100)
        setGeometry(frame);
    else
        resize(720, 480);
}

void SoundLabWindow::closeEvent(QCloseEvent *event)
{
    QKUserDefaults::standardUserDefaults()->setObject(NSStringFromRect(geometry()), FrameKey);
    QMainWindow::closeEvent(event);
}

SoundLabWindow::~SoundLabWindow()
{
    QKMeterController::defaultController()->removeMeter(m_levelMeter->meter().get());
}

void SoundLabWindow::buildMenus()
{
    QMenuBar *bar = menuBar();
    const QString appName = QKApplication::sharedApplication()->name();

    QMenu *appMenu = bar->addMenu(appName);
    QKMenus::addItemWithTitle(appMenu, tr("About %1").arg(appName), "showAbout:");
    appMenu->addSeparator();
    QKMenus::addItemWithTitle(appMenu, tr("Preferences…"), "showPreferences:");
    appMenu->addSeparator();
    QKMenus::addItemWithTitle(appMenu, tr("Quit %1").arg(appName), "quit");

    QMenu *file = bar->addMenu(tr("File"));
    QKMenus::addItemWithTitle(file, tr("New Track"), "newTrack:", QStringLiteral("T"));
    QKMenus::addItemWithTitle(file, tr("Delete Track"), "deleteTrack:");

    QMenu *edit = bar->addMenu(tr("Edit"));
    QKMenus::addItemWithTitle(edit, tr("Undo"), "undo");
    QKMenus::addItemWithTitle(edit, tr("Select All"), "selectAll");

    QMenu *view = bar->addMenu(tr("View"));
    QKMenus::addItemWithTitle(view, tr("Zoom In"), "zoomIn:");
    QKMenus::addItemWithTitle(view, tr("Zoom Out"), "zoomOut:");
    QMenu *transport = view->addMenu(tr("Transport"));
    QKMenus::addItemWithTitle(transport, tr("Play/Stop"), "togglePlayback:");
    QKMenus::addItemWithTitle(transport, tr("Rewind"), "rewind:");

    QMenu *devices = bar->addMenu(tr("Devices"));
    SoundLabWiiRemote::addMenuItem(devices);
    SoundLabInfraredRemote::addMenuItem(devices);
    addScrollWheel(devices);

    QMenu *window = bar->addMenu(tr("Window"));
    QKMenus::addItemWithTitle(window, tr("Minimize"), "showMinimized");
    QKMenus::addItemWithTitle(window, tr("Keyboard Shortcuts…"), "toggleKeyboardShortcuts:");

    QMenu *help = bar->addMenu(tr("Help"));
    // The shortcut registry tells items apart by their action, so each has its own.
    const std::pair<const char *, const char *> helpDeskItems[] = {
        {"Documentation", "showDocumentation:"},
        {"Tutorials", "showTutorials:"},
        {"Software Update", "showSoftwareUpdate:"},
        {"Release Notes", "showReleaseNotes:"},
        {"Debug", "showDebug:"},
        {"Support", "showSupport:"},
        {"Online Documentation", "showOnlineDocumentation:"},
        {"Check for Updates", "checkForUpdates:"}};
    for (const auto &[title, action] : helpDeskItems)
        QKMenus::addItemWithTitle(help, QString::fromLatin1(title), action);
    help->addSeparator();
    QKMenus::addItemWithTitle(help, tr("Support Site"), "showSupportSite:");
    QKMenus::addItemWithTitle(help, tr("Online Manuals"), "openManuals:");
    QKMenus::addItemWithTitle(help, tr("System Information"), "showSystemInformation:");
    QKMenus::addItemWithTitle(help, tr("Raise Test Exception"), "raiseTestException:");
    QMenu *debug = help->addMenu(tr("Debug Log"));
    QKMenus::addItemWithTitle(debug, tr("Write Log Entry"), "writeLogEntry:");
    QKMenus::addItemWithTitle(debug, tr("Open Debug Log"), "openDebugLog:");
    debug->addSeparator();
    QKMenus::addItemWithTitle(debug, tr("Crash Sound Lab"), "crashSoundLab:");
}

void SoundLabWindow::addPluginMenus(SoundLabPlugins *plugins)
{
    m_plugins = plugins;
    plugins->addMenus(menuBar(), this);
}

void SoundLabWindow::chooseEffect(QObject *sender)
{
    const auto *item = qobject_cast<const QAction *>(sender);
    if (!item || !m_plugins)
        return;
    const SoundLabPlugins::Choice choice = m_plugins->describe(item->data());
    trace(QStringLiteral("effect %1").arg(choice.title));
    statusBar()->showMessage(tr("Effect: %1").arg(choice.title), 4000);
}

void SoundLabWindow::chooseInstrument(QObject *sender)
{
    const auto *item = qobject_cast<const QAction *>(sender);
    if (!item || !m_plugins)
        return;
    const SoundLabPlugins::Choice choice = m_plugins->describe(item->data());
    const QModelIndex current = m_trackTable->currentIndex();
    if (choice.title.isEmpty() || !current.isValid()) {
        statusBar()->showMessage(tr("Select a track for the instrument first"), 4000);
        return;
    }
    QStandardItem *cell = m_tracks->item(current.row(), 1);
    cell->setText(choice.title);
    cell->setToolTip(choice.details);
    trace(QStringLiteral("instrument %1 on track row %2").arg(choice.title).arg(current.row()));
}

void SoundLabWindow::newTrack(QObject *sender)
{
    traceAction("newTrack:", sender);
    const int number = m_tracks->rowCount() + 1;
    m_tracks->appendRow({new QStandardItem(tr("Track %1").arg(number)),
                         new QStandardItem(tr("Sine generator")), new QStandardItem("0 dB")});
    statusBar()->showMessage(tr("%n track(s)", nullptr, m_tracks->rowCount()));
}

void SoundLabWindow::deleteTrack(QObject *sender)
{
    traceAction("deleteTrack:", sender);
    const QModelIndex current = m_trackTable->currentIndex();
    if (!current.isValid())
        return;
    m_tracks->removeRow(current.row());
    statusBar()->showMessage(tr("%n track(s)", nullptr, m_tracks->rowCount()));
}

bool SoundLabWindow::validateMenuItem(QAction *item)
{
    if (item && item->property(QKMenus::ActionProperty).toByteArray() == "deleteTrack:")
        return m_trackTable->currentIndex().isValid();
    return true;
}

int SoundLabWindow::trackCount() const
{
    return m_tracks->rowCount();
}

void SoundLabWindow::togglePlayback(QObject *sender)
{
    traceAction("togglePlayback:", sender);
    m_playing = !m_playing;
    if (m_playing)
        m_playTimer->start();
    else
        m_playTimer->stop();
    updateTransport();
}

void SoundLabWindow::rewind(QObject *sender)
{
    traceAction("rewind:", sender);
    m_position = 0.0;
    updateTransport();
}

void SoundLabWindow::zoomIn(QObject *sender)
{
    traceAction("zoomIn:", sender);
    setZoom(m_zoom + 2);
}

void SoundLabWindow::zoomOut(QObject *sender)
{
    traceAction("zoomOut:", sender);
    setZoom(m_zoom - 2);
}

void SoundLabWindow::toggleKeyboardShortcuts(QObject *sender)
{
    traceAction("toggleKeyboardShortcuts:", sender);
    QKKeyboardShortcuts::togglePanel();
}

void SoundLabWindow::enableInfraredRemote(QObject *sender)
{
    traceAction("enableInfraredRemote:", sender);
    m_infraredRemote->toggle();
}

void SoundLabWindow::connectWiiRemote(QObject *sender)
{
    traceAction("connectWiiRemote:", sender);
    m_wiiRemote->toggle();
}

void SoundLabWindow::nudgeLeft(QObject *sender)
{
    traceAction("nudgeLeft:", sender);
    nudge(-1.0);
}

void SoundLabWindow::nudgeRight(QObject *sender)
{
    traceAction("nudgeRight:", sender);
    nudge(1.0);
}

void SoundLabWindow::nudge(double seconds)
{
    m_position = qMax(0.0, m_position + seconds);
    updateTransport();
}

void SoundLabWindow::setZoom(int pointSize)
{
    QKUserDefaults::standardUserDefaults()->setInteger(qBound(6, pointSize, 32),
                                                       SoundLabSettings::TrackFontSizeKey);
    applySettings();
    // The Tracks pane follows, whether or not the preferences are open.
    QKPreferencesPanel::update();
    statusBar()->showMessage(tr("Zoom %1 pt").arg(m_zoom), 2000);
}

void SoundLabWindow::applySettings()
{
    const QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    m_zoom = qBound(6, int(defaults->integerForKey(SoundLabSettings::TrackFontSizeKey)), 32);
    QFont font = m_trackTable->font();
    font.setPointSize(m_zoom);
    m_trackTable->setFont(font);

    const QString colour = defaults->stringForKey(SoundLabSettings::MeterColourKey);
    m_levelMeter->setColour(colour == QLatin1String("blue")    ? QColor(70, 140, 240)
                            : colour == QLatin1String("amber") ? QColor(240, 170, 40)
                                                               : QColor(60, 200, 90));
    m_levelMeter->setPeakHold(defaults->boolForKey(SoundLabSettings::MeterPeakHoldKey));
}

void SoundLabWindow::showSupportSite(QObject *)
{
    SoundLabSiteDialog dialog(this);
    dialog.exec();
}

void SoundLabWindow::openManuals(QObject *)
{
    QKApplication *app = QKApplication::sharedApplication();
    const QUrl url(QStringLiteral("%1/manuals.php?appCode=%2&version=%3")
                       .arg(QKSupportSite::baseURL(), app->code().toLower(),
                            app->applicationVersion().left(1)));
    QKApplicationLog::sharedLog()->info(QKApplicationLogContext(QStringLiteral("SoundLab"), this),
                                        QStringLiteral("opening %1").arg(url.toString()));
    if (!QKWorkspace::openURL(url))
        QKAlert::runModal(tr("The support site could not be opened."), url.toString());
}

void SoundLabWindow::showAbout(QObject *)
{
    QKAboutPanel::openPanel();
}

void SoundLabWindow::showPreferences(QObject *)
{
    QKPreferencesPanel::open();
}

void SoundLabWindow::showSystemInformation(QObject *)
{
    SoundLabInfoDialog dialog(this);
    dialog.exec();
}

void SoundLabWindow::writeLogEntry(QObject *)
{
    QKApplicationLog *log = QKApplicationLog::sharedLog();
    log->warning(QKApplicationLogContext(QStringLiteral("SoundLab"), this),
                 tr("Test entry from the Help menu with %n track(s)", nullptr, trackCount()));
    statusBar()->showMessage(tr("Wrote an entry to %1").arg(log->logFilePath()), 4000);
}

void SoundLabWindow::openDebugLog(QObject *)
{
    QKApplicationLog *log = QKApplicationLog::sharedLog();
    if (!QFileInfo::exists(log->logFilePath()))
        writeLogEntry(this);
    log->openLogFile();
}

void SoundLabWindow::raiseTestException(QObject *)
{
    throw QKException(tr("Sound Lab raised a test exception from the Help menu"),
                      {{QStringLiteral("tracks"), trackCount()}});
}

// Read through a volatile, so the compiler cannot see the null pointer and drop the write.
int *volatile g_nowhere = nullptr;

void SoundLabWindow::crashSoundLab(QObject *)
{
    *g_nowhere = 42;
}

// The help desk finds its pane, or what to do, by these titles.

void SoundLabWindow::showDocumentation(QObject *)
{
    QKHelpDesk::openWindow(QStringLiteral("Documentation"));
}

void SoundLabWindow::showTutorials(QObject *)
{
    QKHelpDesk::openWindow(QStringLiteral("Tutorials"));
}

void SoundLabWindow::showSoftwareUpdate(QObject *)
{
    QKHelpDesk::openWindow(QStringLiteral("Software Update"));
}

void SoundLabWindow::showReleaseNotes(QObject *)
{
    QKHelpDesk::openWindow(QStringLiteral("Release Notes"));
}

void SoundLabWindow::showDebug(QObject *)
{
    QKHelpDesk::openWindow(QStringLiteral("Debug"));
}

void SoundLabWindow::showSupport(QObject *)
{
    QKHelpDesk::openWindow(QStringLiteral("Support"));
}

void SoundLabWindow::showOnlineDocumentation(QObject *)
{
    QKHelpDesk::openWindow(QStringLiteral("Online Documentation"));
}

void SoundLabWindow::checkForUpdates(QObject *)
{
    QKHelpDesk::openWindow(QStringLiteral("Check for Updates"));
}

void SoundLabWindow::updateTransport()
{
    m_transportLabel->setText(tr("%1  %2 s")
                                  .arg(m_playing ? tr("▶ Playing") : tr("■ Stopped"))
                                  .arg(m_position, 0, 'f', 1));
}
