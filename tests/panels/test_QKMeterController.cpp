#include "PanelTestSupport.h"

#include <QKMeter.h>
#include <QKMeterController.h>

#include <QStringList>
#include <QVariant>

#include <gtest/gtest.h>

#include <functional>

namespace {

// Records what it hears; two meters with the same level compare equal.
class RecordingMeter : public QKMeter
{
public:
    RecordingMeter(const QString &name, QStringList *log, int level = 0)
        : m_name(name), m_log(log), m_level(level)
    {}
    bool operator==(const RecordingMeter &other) const { return m_level == other.m_level; }

    void input(const QVariant &measurement) override
    {
        m_log->append(m_name + QLatin1Char('=') + measurement.toString());
        last = measurement;
        if (onInput)
            onInput();
    }

    QVariant last;
    std::function<void()> onInput;

private:
    QString m_name;
    QStringList *m_log;
    int m_level;
};

} // namespace

TEST(QKMeterController, fansOutToEveryMeterInRegistrationOrder)
{
    QStringList log;
    QKMeterController *controller = QKMeterController::defaultController();
    EXPECT_EQ(QKMeterController::defaultController(), controller);
    auto left = std::make_shared<RecordingMeter>(QStringLiteral("left"), &log);
    auto right = std::make_shared<RecordingMeter>(QStringLiteral("right"), &log);
    auto master = std::make_shared<RecordingMeter>(QStringLiteral("master"), &log);
    controller->addMeter(right);
    controller->addMeter(left);
    controller->addMeter(master);

    const QVariantMap levels{{QStringLiteral("peak"), QVariantList{0.5, 0.25}}};
    controller->input(QStringLiteral("-6 dB"));
    controller->input(levels);
    EXPECT_EQ(log, QStringList({"right=-6 dB", "left=-6 dB", "master=-6 dB",
                                "right=", "left=", "master="}));
    EXPECT_EQ(master->last, QVariant(levels));

    controller->removeMeter(left.get());
    log.clear();
    controller->input(1);
    EXPECT_EQ(log, QStringList({"right=1", "master=1"}));
}

TEST(QKMeterController, registersAMeterOnceButEqualMetersBoth)
{
    QStringList log;
    QKMeterController *controller = QKMeterController::defaultController();
    auto meter = std::make_shared<RecordingMeter>(QStringLiteral("a"), &log, 3);
    auto twin = std::make_shared<RecordingMeter>(QStringLiteral("b"), &log, 3);
    ASSERT_TRUE(*meter == *twin);

    controller->addMeter(meter);
    controller->addMeter(meter);
    controller->addMeter(twin);
    controller->addMeter(nullptr);
    EXPECT_EQ(controller->meters().size(), 2);
    controller->input(7);
    EXPECT_EQ(log, QStringList({"a=7", "b=7"}));

    // Removing what is not registered, or fanning out to nobody, changes nothing.
    RecordingMeter stranger(QStringLiteral("c"), &log, 3);
    controller->removeMeter(&stranger);
    controller->removeMeter(meter.get());
    controller->removeMeter(twin.get());
    controller->removeMeter(twin.get());
    log.clear();
    controller->input(8);
    EXPECT_TRUE(log.isEmpty());
    EXPECT_TRUE(controller->meters().isEmpty());
}

TEST(QKMeterController, meterAddedDuringInputHearsOnlyTheNextMeasurement)
{
    QStringList log;
    QKMeterController *controller = QKMeterController::defaultController();
    auto first = std::make_shared<RecordingMeter>(QStringLiteral("first"), &log);
    auto late = std::make_shared<RecordingMeter>(QStringLiteral("late"), &log);
    first->onInput = [&] {
        controller->addMeter(late);
    };
    controller->addMeter(first);

    controller->input(1);
    EXPECT_EQ(log, QStringList({"first=1"}));
    controller->input(2);
    EXPECT_EQ(log, QStringList({"first=1", "first=2", "late=2"}));
}

TEST(QKMeterController, meterThatUnregistersItselfFinishesItsInput)
{
    QStringList log;
    QKMeterController *controller = QKMeterController::defaultController();
    auto leaving = std::make_shared<RecordingMeter>(QStringLiteral("leaving"), &log);
    std::weak_ptr<RecordingMeter> watch = leaving;
    bool aliveAfterRemoval = false;
    leaving->onInput = [&] {
        controller->removeMeter(watch.lock().get());
        aliveAfterRemoval = !watch.expired();
    };
    controller->addMeter(leaving);
    leaving.reset();

    controller->input(1);
    EXPECT_TRUE(aliveAfterRemoval);
    EXPECT_TRUE(watch.expired());
    EXPECT_EQ(log, QStringList({"leaving=1"}));
}

TEST(QKMeterController, ownsItsMetersUntilDisposed)
{
    QStringList log;
    std::weak_ptr<RecordingMeter> kept;
    std::weak_ptr<RecordingMeter> removed;
    {
        auto a = std::make_shared<RecordingMeter>(QStringLiteral("a"), &log);
        auto b = std::make_shared<RecordingMeter>(QStringLiteral("b"), &log);
        kept = a;
        removed = b;
        QKMeterController::defaultController()->addMeter(a);
        QKMeterController::defaultController()->addMeter(b);
    }
    EXPECT_FALSE(kept.expired());
    QKMeterController::defaultController()->removeMeter(removed.lock().get());
    EXPECT_TRUE(removed.expired());

    QKMeterController::dispose();
    EXPECT_TRUE(kept.expired());
    QKMeterController *fresh = QKMeterController::defaultController();
    EXPECT_TRUE(fresh->meters().isEmpty());
    fresh->input(1);
    EXPECT_TRUE(log.isEmpty());
}
