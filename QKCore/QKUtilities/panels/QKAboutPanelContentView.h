#pragma once

#include "QKUtilitiesGlobal.h"

#include <QKGradient.h>
#include <QWidget>

/**
 * The About panel's content: the splash screen's rounded dark gradient with a line that
 * separates the buttons from the text. A click on it (not on a button) closes the panel.
 */
class QKUTILITIES_EXPORT QKAboutPanelContentView : public QWidget
{
    Q_OBJECT
public:
    explicit QKAboutPanelContentView(QWidget *parent = nullptr);
    ~QKAboutPanelContentView() override;

    QKGradient background() const { return m_background; }

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;

private:
    QKGradient m_background;
};
