#pragma once

#include <QObject>

#include <memory>

class QWidget;

/**
 * The borderless, translucent window of the About panel and the splash screen: it takes
 * the size of its content view, opens centred on the primary screen and fades out before
 * it closes. The fades animate the window's opacity.
 */
class QKFadingWindow : public QObject
{
    Q_OBJECT
public:
    /** A hidden window of @p type without a frame, named @p objectName. */
    QKFadingWindow(Qt::WindowType type, const QString &objectName, QObject *parent = nullptr);
    ~QKFadingWindow() override;

    /** Makes @p owner, a shared object that holds a fading window, a child of the
     *  application, and has @p destroy (which deletes it) run first thing when the
     *  application ends: windows must be gone before it dismantles its widget state. */
    static void keepUntilApplicationEnds(QObject *owner, void (*destroy)());

    /** The window; content views are made as its children. */
    QWidget *window() const;
    /** Makes @p view, a child of window(), fill the window, which keeps the view's size. */
    void setContentView(QWidget *view);

    /** Centres the window and brings it to the front, fading in over @p fadeMsecs (zero
     *  shows it at once). */
    void open(int fadeMsecs);
    /** Fades the window out over @p fadeMsecs and closes it; at once when zero or hidden.
     *  closed() follows either way. */
    void close(int fadeMsecs);
    /** True while the window is shown. */
    bool isVisible() const;

Q_SIGNALS:
    /** The window closed at the end of close(). */
    void closed();

private:
    void fadeDidStop();

    struct Private;
    std::unique_ptr<Private> d;
};
