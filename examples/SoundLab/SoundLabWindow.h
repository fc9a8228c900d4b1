#pragma once

#include <QMainWindow>

class QLabel;
class QMenu;
class SoundLabLevelMeter;
class SoundLabInfraredRemote;
class SoundLabWiiRemote;
class SoundLabPlugins;
class SoundLabSignalGenerator;
class QPlainTextEdit;
class QStandardItemModel;
class QTableView;
class QTimer;

/**
 * Sound Lab's main window: a session of tracks, notes, and a transport. Its menu items
 * send their actions along the responder chain, so each method below is what a menu item
 * or a shortcut reaches.
 */
class SoundLabWindow : public QMainWindow
{
    Q_OBJECT
public:
    explicit SoundLabWindow(QWidget *parent = nullptr);
    ~SoundLabWindow() override;

    Q_INVOKABLE void newTrack(QObject *sender);
    Q_INVOKABLE void deleteTrack(QObject *sender);
    Q_INVOKABLE void togglePlayback(QObject *sender);
    Q_INVOKABLE void rewind(QObject *sender);
    Q_INVOKABLE void zoomIn(QObject *sender);
    Q_INVOKABLE void zoomOut(QObject *sender);
    Q_INVOKABLE void showSupportSite(QObject *sender);
    Q_INVOKABLE void openManuals(QObject *sender);
    Q_INVOKABLE void showAbout(QObject *sender);
    Q_INVOKABLE void showPreferences(QObject *sender);
    Q_INVOKABLE void showSystemInformation(QObject *sender);
    Q_INVOKABLE void writeLogEntry(QObject *sender);
    Q_INVOKABLE void openDebugLog(QObject *sender);
    /** Throws an application error, to try the help desk's error report. */
    Q_INVOKABLE void raiseTestException(QObject *sender);
    /** Crashes Sound Lab on purpose, to try the crash report at the next launch. */
    Q_INVOKABLE void crashSoundLab(QObject *sender);
    Q_INVOKABLE void toggleKeyboardShortcuts(QObject *sender);
    Q_INVOKABLE void nudgeLeft(QObject *sender);
    Q_INVOKABLE void nudgeRight(QObject *sender);
    /** The Help menu's help desk items: each opens the help desk on its pane, or runs the
     *  help desk's action of that name. */
    Q_INVOKABLE void showDocumentation(QObject *sender);
    Q_INVOKABLE void showTutorials(QObject *sender);
    Q_INVOKABLE void showSoftwareUpdate(QObject *sender);
    Q_INVOKABLE void showReleaseNotes(QObject *sender);
    Q_INVOKABLE void showDebug(QObject *sender);
    Q_INVOKABLE void showSupport(QObject *sender);
    Q_INVOKABLE void showOnlineDocumentation(QObject *sender);
    Q_INVOKABLE void checkForUpdates(QObject *sender);
    /** Starts or stops the infrared remote. */
    Q_INVOKABLE void enableInfraredRemote(QObject *sender);
    /** Connects or disconnects the Wii Remote. */
    Q_INVOKABLE void connectWiiRemote(QObject *sender);
    Q_INVOKABLE bool validateMenuItem(QAction *item);
    /** The Devices menu's scroll wheel item: opens or closes the scroll wheel panel. */
    Q_INVOKABLE void toggleScrollWheelPanel(QObject *sender);
    /** What the scroll wheel can do over the tracks, by the amount in wheel notches. */
    Q_INVOKABLE void scrollTracks(double notches);
    Q_INVOKABLE void scrollSideways(double notches);
    Q_INVOKABLE void zoomBy(double notches);
    Q_INVOKABLE void nudgeBy(double notches);

    /** The plug-in menus: an effect chosen is announced, an instrument chosen becomes the
     *  selected track's instrument. */
    Q_INVOKABLE void chooseEffect(QObject *sender);
    Q_INVOKABLE void chooseInstrument(QObject *sender);
    /** Adds the Effects and Instruments menus of @p plugins, which outlives the window. */
    void addPluginMenus(SoundLabPlugins *plugins);

    /** The number of tracks in the session. */
    int trackCount() const;

    /** With SOUNDLAB_TRACE set, writes "trace: <line>" to stderr, so that tests can watch
     *  what Sound Lab does: performed actions, focus changes, the track row, the notes. */
    static void trace(const QString &line);

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void buildMenus();
    void addScrollWheel(QMenu *devices);
    void restoreFrame();
    void updateTransport();
    void setZoom(int pointSize);
    void traceAction(const char *action, const QObject *sender);
    void nudge(double seconds);
    void applySettings();

    QStandardItemModel *m_tracks;
    QTableView *m_trackTable;
    QPlainTextEdit *m_notes;
    QLabel *m_transportLabel;
    QTimer *m_playTimer;
    SoundLabLevelMeter *m_levelMeter;
    SoundLabSignalGenerator *m_generator;
    SoundLabInfraredRemote *m_infraredRemote;
    SoundLabWiiRemote *m_wiiRemote;
    SoundLabPlugins *m_plugins = nullptr;
    bool m_playing = false;
    double m_position = 0.0;
    int m_zoom = 10;
};
