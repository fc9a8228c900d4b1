#pragma once

#include <QMainWindow>

class QLabel;
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
    Q_INVOKABLE void showSystemInformation(QObject *sender);
    Q_INVOKABLE void writeLogEntry(QObject *sender);
    Q_INVOKABLE void openDebugLog(QObject *sender);
    /** Opens the help desk on the pane (or runs the action) named by the menu item. */
    Q_INVOKABLE void showHelpDesk(QObject *sender);
    Q_INVOKABLE bool validateMenuItem(QAction *item);

    /** The number of tracks in the session. */
    int trackCount() const;

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void buildMenus();
    void restoreFrame();
    void updateTransport();
    void setZoom(int pointSize);

    QStandardItemModel *m_tracks;
    QTableView *m_trackTable;
    QPlainTextEdit *m_notes;
    QLabel *m_transportLabel;
    QTimer *m_playTimer;
    bool m_playing = false;
    double m_position = 0.0;
    int m_zoom = 10;
};
