#pragma once

#include <QKApplication.h>

/** Sound Lab's application object: it shows the splash screen while it launches. */
class SoundLabApplication : public QKApplication
{
    Q_OBJECT
public:
    using QKApplication::QKApplication;

    bool usesSplashScreen() const override { return true; }
};
