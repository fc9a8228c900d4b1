#include "PanelTestSupport.h"

#include <QKMeter.h>
#include <QKMeterController.h>

#include <QVariant>

#include <gtest/gtest.h>

#include <functional>

namespace {

QStringList g_heard;

// Records what it hears as "name=measurement"; two meters of one level compare equal.
class RecordingMeter : public QKMeter
{
public:
    explicit RecordingMeter(const QString &name, int level = 0) : m_name(name), m_level(level) {}
    bool operator==(const RecordingMeter &other) const { return m_level == other.m_level; }

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
    int m_level;
};

std::shared_ptr<RecordingMeter> meter(const QString &name, int level = 0)
{
    return std::make_shared<RecordingMeter>(name, level);
}

QKMeterController *controller()
{
    return QKMeterController::defaultController();
}

// The meters' record of @p measurement.
QStringList heard(const QVariant &measurement)
{
    g_heard.clear();
    controller()->input(measurement);
    return g_heard;
}

} // namespace

TEST(QKMeterController, fansOutToEveryMeterOnceInRegistrationOrder)
{
    EXPECT_EQ(controller(), QKMeterController::defaultController());
    const auto left = meter(u"left"_s), right = meter(u"right"_s, 3), twin = meter(u"twin"_s, 3);
    ASSERT_TRUE(*right == *twin);
    controller()->addMeter(right);
    controller()->addMeter(left);
    controller()->addMeter(right);
    controller()->addMeter(twin);
    controller()->addMeter(nullptr);
    EXPECT_EQ(heard(u"-6 dB"_s), QStringList({"right=-6 dB", "left=-6 dB", "twin=-6 dB"}));
    // Passed on untouched, whatever it holds.
    const QVariantMap levels{{u"peak"_s, QVariantList{0.5, 0.25}}};
    controller()->input(levels);
    EXPECT_EQ(twin->last, levels);

    // Removing what is not registered, or twice, changes nothing.
    RecordingMeter stranger(u"stranger"_s, 3);
    controller()->removeMeter(&stranger);
    controller()->removeMeter(left.get());
    controller()->removeMeter(left.get());
    EXPECT_EQ(heard(1), QStringList({"right=1", "twin=1"}));
    controller()->removeMeter(right.get());
    controller()->removeMeter(twin.get());
    EXPECT_TRUE(heard(2).isEmpty());
    EXPECT_TRUE(controller()->meters().isEmpty());
}

TEST(QKMeterController, metersChangingTheListDuringInputTakeEffectNextTime)
{
    const auto first = meter(u"first"_s), late = meter(u"late"_s);
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

    // The controller owns its meters until it is disposed; the next one starts empty.
    std::weak_ptr<RecordingMeter> owned;
    {
        const auto only = meter(u"only"_s);
        owned = only;
        controller()->addMeter(only);
    }
    EXPECT_FALSE(owned.expired());
    QKMeterController::dispose();
    EXPECT_TRUE(owned.expired());
    EXPECT_TRUE(controller()->meters().isEmpty());
}
