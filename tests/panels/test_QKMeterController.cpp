#include "QKTestPrinters.h"

#include <QKMeter.h>
#include <QKMeterController.h>

#include <QVariant>

#include <gtest/gtest.h>

#include <functional>

namespace {

struct Meter : QKMeter
{
    explicit Meter(std::function<void(const QVariant &)> onInput) : onInput(std::move(onInput)) {}
    void input(const QVariant &measurement) override { onInput(measurement); }
    std::function<void(const QVariant &)> onInput;
};

QStringList g_heard;

// A meter that records what it hears as "name=measurement", then runs @p then.
std::shared_ptr<Meter> meter(const QString &name, const std::function<void()> &then = {})
{
    return std::make_shared<Meter>([=](const QVariant &measurement) {
        g_heard << name + u'=' + measurement.toString();
        if (then)
            then();
    });
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

    // Removing what is not registered, or twice, changes nothing.
    Meter stranger([](const QVariant &) {});
    controller()->removeMeter(&stranger);
    controller()->removeMeter(left.get());
    controller()->removeMeter(left.get());
    EXPECT_EQ(heard(1), QStringList({"right=1"}));
    controller()->removeMeter(right.get());
    EXPECT_TRUE(heard(2).isEmpty());

    // Passed on untouched, whatever it holds.
    const QVariantMap levels{{u"peak"_s, QVariantList{0.5, 0.25}}};
    QVariant received;
    controller()->addMeter(std::make_shared<Meter>([&](const QVariant &m) { received = m; }));
    controller()->input(levels);
    EXPECT_EQ(received, levels);
}

TEST(QKMeterController, metersChangingTheListDuringInputTakeEffectNextTime)
{
    auto late = meter(u"late"_s);
    controller()->addMeter(meter(u"first"_s, [&late] { controller()->addMeter(late); }));
    EXPECT_EQ(heard(1), QStringList({"first=1"}));
    EXPECT_EQ(heard(2), QStringList({"first=2", "late=2"}));

    // A meter that unregisters itself, or a later one, finishes the round; the controller
    // owned it, and the meters after it still hear this measurement.
    std::weak_ptr<QKMeter> leaving, follower;
    bool aliveAfterRemoval = false;
    controller()->addMeter(meter(u"leaving"_s, [&] {
        controller()->removeMeter(leaving.lock().get());
        controller()->removeMeter(follower.lock().get());
        aliveAfterRemoval = !leaving.expired();
    }));
    leaving = controller()->meters().last();
    controller()->addMeter(meter(u"follower"_s));
    follower = controller()->meters().last();
    controller()->addMeter(meter(u"last"_s));
    EXPECT_EQ(heard(3), QStringList({"first=3", "late=3", "leaving=3", "follower=3", "last=3"}));
    EXPECT_TRUE(aliveAfterRemoval);
    EXPECT_TRUE(leaving.expired() && follower.expired());
    EXPECT_EQ(heard(4), QStringList({"first=4", "late=4", "last=4"}));

    // Disposing releases the meters still registered; the next controller starts empty.
    const std::weak_ptr<Meter> owned = late;
    late.reset();
    EXPECT_FALSE(owned.expired());
    QKMeterController::dispose();
    EXPECT_TRUE(owned.expired());
    EXPECT_TRUE(controller()->meters().isEmpty());
}
