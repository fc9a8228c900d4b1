#pragma once

#include "QKUtilitiesGlobal.h"

#include <QPushButton>

#include <memory>

class QKAboutPanelButtonCell;

/** A push button of the About panel, drawn by its QKAboutPanelButtonCell. */
class QKUTILITIES_EXPORT QKAboutPanelButton : public QPushButton
{
    Q_OBJECT
public:
    explicit QKAboutPanelButton(QWidget *parent = nullptr);
    ~QKAboutPanelButton() override;

    const QKAboutPanelButtonCell &cell() const;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    std::unique_ptr<QKAboutPanelButtonCell> m_cell;
};
