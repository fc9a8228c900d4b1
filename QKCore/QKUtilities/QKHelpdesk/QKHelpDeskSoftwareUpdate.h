#pragma once

#include "QKHelpDeskView.h"

#include <memory>

namespace Ui {
class QKHelpDeskSoftwareUpdate;
}

/**
 * The software update pane: whether the update framework checks at start-up and how often
 * it checks on its own, the time of the last check, and a check on demand. The controls
 * mirror the framework's settings (SUConstants.h), read once when the pane is loaded and
 * written back at every change.
 */
class QKUTILITIES_EXPORT QKHelpDeskSoftwareUpdate : public QKHelpDeskView
{
    Q_OBJECT
public:
    /** How the time of the last check is written: "3/7/09 4:05 PM". */
    static const QString LastCheckFormat;

    explicit QKHelpDeskSoftwareUpdate(QWidget *parent = nullptr);
    ~QKHelpDeskSoftwareUpdate() override;

    QString identifier() const override;
    QString title() const override;
    /** Sets the controls from the settings; the last check reads "Never" when there was
     *  none (or its date cannot be read). */
    void awakeFromNib() override;

    /** The action of all three controls: stores the start-up flag and the interval (the
     *  selected interval while the interval box is on, else 0) and reschedules the
     *  updater's periodic checks. */
    Q_INVOKABLE void checkChanged(QObject *sender = nullptr);
    /** Runs a check the user asked for and shows the time of the click as the last check,
     *  whatever the check then finds. */
    Q_INVOKABLE void checkNow(QObject *sender = nullptr);

private:
    std::unique_ptr<Ui::QKHelpDeskSoftwareUpdate> ui;
};
