#pragma once

#include <QMainWindow>

/**
 * The host's only window. Its menu items send actions along the responder chain, and the
 * shortcut registry sends the same actions for their keys; the invokable methods below are
 * what both reach.
 */
class MinimalHostWindow : public QMainWindow
{
    Q_OBJECT
public:
    explicit MinimalHostWindow(QWidget *parent = nullptr);

    /** Opens the help desk on the pane it showed last. */
    Q_INVOKABLE void openHelpDesk(QObject *sender);
};
