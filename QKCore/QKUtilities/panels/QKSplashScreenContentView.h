#pragma once

#include "QKUtilitiesGlobal.h"

#include <QKGradient.h>
#include <QWidget>

/**
 * The splash screen's content: a rounded, dark gradient; everything outside the rounded
 * rectangle stays transparent in the translucent window.
 */
class QKUTILITIES_EXPORT QKSplashScreenContentView : public QWidget
{
    Q_OBJECT
public:
    explicit QKSplashScreenContentView(QWidget *parent = nullptr);
    ~QKSplashScreenContentView() override;

    /** The dark gradient of the splash screen and the About panel: black to white 0.3, with
     *  white 0.15 half way and black held almost up to it. */
    static QKGradient panelGradient();
    /** Fills a rectangle with corners of radius 6 over @p rect with @p gradient, running
     *  bottom to top. */
    static void drawPanelBackground(QPainter *painter, const QRectF &rect,
                                    const QKGradient &gradient);

    QKGradient background() const { return m_background; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QKGradient m_background;
};
