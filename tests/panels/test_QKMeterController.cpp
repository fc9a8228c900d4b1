#include "QKTestPrinters.h"

#include <QKMeter.h>
#include <QKMeterController.h>

#include <QVariant>

#include <gtest/gtest.h>

#include <functional>

namespace {

QStringList g_heard;

// Records what it hears as "name=measurement".
class RecordingMeter : public QKMeter
{
public:
    explicit RecordingMeter(const QString &name) : m_name(name) {}
    void input(const QVariant &measurement) override
    {
        g_heard << m_name + u'=' + measurement.toString();
        last = measurement;
        if (onInput)
            onInput();
    }

    QVariant last;
    std::function<void()> onInput;

private:
    QString m_name;
};

std::shared_ptr<RecordingMeter> meter(const QString &name)
{
    return std::make_shared<RecordingMeter>(name);
}

QKMeterController *controller()
{
    return QKMeterController::defaultController();
}

// What the meters heard of @p measurement.
QStringList heard(const QVariant &measurement)
{
    g_heard.clear();
    controller()->input(measurement);
    return g_heard;
}

} // namespace

TEST(QKMeterController, fansOutToEveryMeterOnceInRegistrationOrder)
{
    const auto left = meter(u"left"_s), right = meter(u"right"_s);
    controller()->addMeter(right);
    controller()->addMeter(left);
    controller()->addMeter(right);
    controller()->addMeter(nullptr);
    EXPECT_EQ(heard(u"-6 dB"_s), QStringList({"right=-6 dB", "left=-6 dB"}));
    // Passed on untouched, whatever it holds.
    const QVariantMap levels{{u"peak"_s, QVariantList{0.5, 0.25}}};
    controller()->input(levels);
    EXPECT_EQ(left->last, levels);

    // Removing what is not registered, or twice, changes nothing.
    RecordingMeter stranger(u"stranger"_s);
    controller()->removeMeter(&stranger);
    controller()->removeMeter(left.get());
    controller()->removeMeter(left.get());
    EXPECT_EQ(heard(1), QStringList({"right=1"}));
    controller()->removeMeter(right.get());
    EXPECT_TRUE(heard(2).isEmpty());
}

TEST(QKMeterController, metersChangingTheListDuringInputTakeEffectNextTime)
{
    auto first = meter(u"first"_s), late = meter(u"late"_s);
    first->onInput = [&late] {
        controller()->addMeter(late);
    };
    controller()->addMeter(first);
    EXPECT_EQ(heard(1), QStringList({"first=1"}));
    EXPECT_EQ(heard(2), QStringList({"first=2", "late=2"}));

    // A meter that unregisters itself finishes its input; the controller owned it.
    auto leaving = meter(u"leaving"_s);
    std::weak_ptr<RecordingMeter> watch = leaving;
    bool aliveAfterRemoval = false;
    leaving->onInput = [&] {
        controller()->removeMeter(watch.lock().get());
        aliveAfterRemoval = !watch.expired();
    };
    controller()->addMeter(leaving);
    leaving.reset();
    EXPECT_EQ(heard(3), QStringList({"first=3", "late=3", "leaving=3"}));
    EXPECT_TRUE(aliveAfterRemoval);
    EXPECT_TRUE(watch.expired());

    // Disposing releases the meters still registered; the next controller starts empty.
    const std::weak_ptr<RecordingMeter> owned = late;
    late.reset();
    EXPECT_FALSE(owned.expired());
    QKMeterController::dispose();
    EXPECT_TRUE(owned.expired());
    EXPECT_TRUE(controller()->meters().isEmpty());
}
