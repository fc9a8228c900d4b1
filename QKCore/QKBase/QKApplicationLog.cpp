#include "QKApplicationLog.h"

#include "QKApplication.h"
#include "QKFile.h"
#include "QKUserDefaults.h"
#include "QKWorkspace.h"

#include <QDateTime>
#include <QDebug>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QObject>
#include <QSaveFile>
#include <QStringList>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace {

const QString ActiveKey = QStringLiteral("QKApplicationLog Active");
const QString DefaultThresholdKey = QStringLiteral("QKApplicationLog Default Threshold");
const QString RulesKey = QStringLiteral("QKApplicationLog Rules");
const QString DomainKey = QStringLiteral("domain");
const QString ThresholdKey = QStringLiteral("threshold");
const QString RuleActiveKey = QStringLiteral("active");

// A log left at Debug grows by megabytes an hour. Past the limit it keeps its newest half:
// one file, small enough to send with a support request, with what led up to the problem.
constexpr qint64 LogSizeLimit = 8 * 1024 * 1024;
constexpr qint64 LogSizeKept = LogSizeLimit / 2;

bool isNumber(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::Float:
    case QMetaType::Short:
    case QMetaType::UShort:
        return true;
    default:
        return false;
    }
}

/** A stored level, or @p fallback when @p value is not a whole number in range. */
uint levelFromVariant(const QVariant &value, uint fallback)
{
    if (!isNumber(value))
        return fallback;
    const double number = value.toDouble();
    if (!std::isfinite(number) || number < 0 || number > std::numeric_limits<uint>::max() ||
        number != std::floor(number))
        return fallback;
    return static_cast<uint>(number);
}

bool flagFromVariant(const QVariant &value, bool fallback)
{
    if (value.typeId() == QMetaType::Bool)
        return value.toBool();
    if (isNumber(value))
        return value.toDouble() != 0;
    return fallback;
}

QString applicationName()
{
    const QString name = QKApplication::currentName();
    return name.isEmpty() ? QStringLiteral("QKApplication") : name;
}

QString logPath()
{
    return QKFile::conformPath(QStringLiteral("~/Library/Logs/Velmora/") + applicationName() +
                               QStringLiteral(".log"));
}

/** Keeps one field on its line: the entry's fields are tab-separated. */
QString field(QString text)
{
    for (QChar &c : text) {
        if (c == u'\t' || c == u'\n' || c == u'\r')
            c = u' ';
    }
    return text;
}

/** Continuation lines start with a tab, which no entry's first line does. */
QString indentedMessage(QString message)
{
    message.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    message.replace(u'\r', u'\n');
    message.replace(QStringLiteral("\n"), QStringLiteral("\n\t"));
    return message;
}

QString timestamp()
{
    const QDateTime now = QDateTime::currentDateTime();
    return now.toOffsetFromUtc(now.offsetFromUtc()).toString(Qt::ISODateWithMs);
}

QString formatEntry(uint level, const QKApplicationLogContext *context, const QString &message)
{
    QStringList fields{timestamp(), QKApplicationLog::levelName(level)};
    if (context) {
        const QString location = context->file().isEmpty()
                                     ? QString()
                                     : context->file() + u':' + QString::number(context->line());
        fields << field(context->domain()) << field(location) << field(context->function())
               << field(context->sender());
    } else {
        fields << QString() << QString() << QString() << QString();
    }
    fields << indentedMessage(message);
    return fields.join(u'\t');
}

QMutex g_sharedMutex;
std::unique_ptr<QKApplicationLog> g_sharedLog;
std::atomic<QKApplicationLog *> g_sharedPointer{nullptr};

} // namespace

QKApplicationLogContext::QKApplicationLogContext(const QString &domain, const QObject *sender,
                                                 std::source_location location)
    : m_domain(domain), m_line(static_cast<int>(location.line())),
      m_function(QString::fromUtf8(location.function_name()))
{
    const QString path = QString::fromUtf8(location.file_name());
    m_file = path.mid(path.lastIndexOf(u'/') + 1);
    if (sender) {
        m_sender = QString::fromLatin1(sender->metaObject()->className());
        const QString name = sender->objectName();
        if (!name.isEmpty())
            m_sender += u'(' + name + u')';
    }
}

QKApplicationLogRule::QKApplicationLogRule(const QString &domain, uint threshold, bool active)
    : m_domain(domain), m_threshold(threshold), m_active(active)
{}

struct QKApplicationLog::Private
{
    mutable QMutex mutex;
    bool active = true;
    uint defaultThreshold = QKApplicationLog::Warning;
    std::vector<std::unique_ptr<QKApplicationLogRule>> rules;
    bool mirrorToStderr = false;
    QFile file;
    bool failureReported = false;

    uint thresholdFor(const QString &domain) const;
    QKApplicationLogRule *ruleFor(const QString &domain) const;
    QVariantList rulesState() const;
    void loadSettings();
    /** Appends @p entry to the file; the text for stderr when that did not work. */
    QString write(const QString &entry);
    bool openFile(QString *reason);
    void trimFile();
};

uint QKApplicationLog::Private::thresholdFor(const QString &domain) const
{
    const QKApplicationLogRule *rule = ruleFor(domain);
    return rule && rule->active() ? rule->threshold() : defaultThreshold;
}

QKApplicationLogRule *QKApplicationLog::Private::ruleFor(const QString &domain) const
{
    for (const auto &rule : rules) {
        if (rule->domain() == domain)
            return rule.get();
    }
    return nullptr;
}

QVariantList QKApplicationLog::Private::rulesState() const
{
    QVariantList state;
    for (const auto &rule : rules) {
        state.append(QVariantMap{{DomainKey, rule->domain()},
                                 {ThresholdKey, qint64(rule->threshold())},
                                 {RuleActiveKey, rule->active()}});
    }
    return state;
}

void QKApplicationLog::Private::loadSettings()
{
    // The defaults may log while they load, so they are read before the mutex is taken.
    const QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    const bool storedActive = flagFromVariant(defaults->objectForKey(ActiveKey), true);
    const uint storedThreshold =
        levelFromVariant(defaults->objectForKey(DefaultThresholdKey), QKApplicationLog::Warning);
    const QVariant storedRules = defaults->objectForKey(RulesKey);

    std::vector<std::unique_ptr<QKApplicationLogRule>> loaded;
    const QVariantList ruleStates =
        storedRules.typeId() == QMetaType::QVariantList ? storedRules.toList() : QVariantList();
    for (const QVariant &entry : ruleStates) {
        if (entry.typeId() != QMetaType::QVariantMap)
            continue;
        const QVariantMap state = entry.toMap();
        const QVariant domain = state.value(DomainKey);
        const QVariant threshold = state.value(ThresholdKey);
        if (domain.typeId() != QMetaType::QString || domain.toString().isEmpty() ||
            !isNumber(threshold))
            continue;
        const bool duplicate = std::any_of(loaded.begin(), loaded.end(), [&](const auto &rule) {
            return rule->domain() == domain.toString();
        });
        const uint level = levelFromVariant(threshold, std::numeric_limits<uint>::max());
        if (duplicate || level == std::numeric_limits<uint>::max())
            continue;
        loaded.push_back(std::make_unique<QKApplicationLogRule>(
            domain.toString(), level, flagFromVariant(state.value(RuleActiveKey), true)));
    }

    QMutexLocker locker(&mutex);
    active = storedActive;
    defaultThreshold = storedThreshold;
    rules = std::move(loaded);
}

bool QKApplicationLog::Private::openFile(QString *reason)
{
    const QString path = logPath();
    file.setFileName(path);
    if (!QKFile::createDirectoryAtPath(QFileInfo(path).path(), reason))
        return false;
    if (!file.open(QIODevice::Append)) {
        *reason = file.errorString();
        return false;
    }
    return true;
}

void QKApplicationLog::Private::trimFile()
{
    // The newest entries, from the first whole entry on; continuation lines start with a tab.
    const QString path = file.fileName();
    file.close();
    QFile old(path);
    QByteArray kept;
    if (old.open(QIODevice::ReadOnly) && old.seek(old.size() - LogSizeKept))
        kept = old.readAll();
    old.close();
    qsizetype newline = kept.indexOf('\n');
    while (newline >= 0 && newline + 1 < kept.size() && kept[newline + 1] == '\t')
        newline = kept.indexOf('\n', newline + 1);
    kept = newline < 0 ? QByteArray() : kept.mid(newline + 1);
    QSaveFile trimmed(path);
    if (trimmed.open(QIODevice::WriteOnly) && trimmed.write(kept) == kept.size())
        trimmed.commit();
    QString reason;
    openFile(&reason);
}

QString QKApplicationLog::Private::write(const QString &entry)
{
    // A log deleted while open (to start afresh) is created again.
    if (file.isOpen() && !QFileInfo::exists(file.fileName()))
        file.close();
    QString reason;
    if (file.isOpen() || openFile(&reason)) {
        const QByteArray bytes = entry.toUtf8() + '\n';
        if (file.write(bytes) == bytes.size() && file.flush()) {
            failureReported = false;
            // Appending keeps the position at the end: no system call to learn the size.
            if (file.pos() > LogSizeLimit)
                trimFile();
            return QString();
        }
        reason = file.errorString();
        file.close();
    }
    // An unwritable log is tried again with every entry but reported once.
    if (failureReported)
        return entry;
    failureReported = true;
    return QStringLiteral("QKApplicationLog: cannot write \"%1\" (%2); entries go to stderr\n%3")
        .arg(file.fileName(), reason, entry);
}

QKApplicationLog::QKApplicationLog() : d(std::make_unique<Private>())
{
    d->mirrorToStderr = qEnvironmentVariableIsSet("QK_LOG_TO_STDERR");
}

QKApplicationLog::~QKApplicationLog() = default;

QKApplicationLog *QKApplicationLog::sharedLog()
{
    if (QKApplicationLog *log = g_sharedPointer.load(std::memory_order_acquire))
        return log;
    QMutexLocker locker(&g_sharedMutex);
    if (!g_sharedLog) {
        g_sharedLog.reset(new QKApplicationLog);
        g_sharedPointer.store(g_sharedLog.get(), std::memory_order_release);
        // Published before the settings are read: the defaults may log while loading.
        locker.unlock();
        g_sharedLog->d->loadSettings();
    }
    return g_sharedPointer.load(std::memory_order_acquire);
}

void QKApplicationLog::resetSharedLog()
{
    QMutexLocker locker(&g_sharedMutex);
    g_sharedPointer.store(nullptr, std::memory_order_release);
    g_sharedLog.reset();
}

QString QKApplicationLog::levelName(uint level)
{
    switch (level) {
    case Debug:
        return QStringLiteral("Debug");
    case Info:
        return QStringLiteral("Info");
    case Notice:
        return QStringLiteral("Notice");
    case Warning:
        return QStringLiteral("Warning");
    case Error:
        return QStringLiteral("Error");
    default:
        return QStringLiteral("Level %1").arg(level);
    }
}

void QKApplicationLog::log(uint level, const QKApplicationLogContext *context,
                           const QString &message)
{
    QString forStderr;
    {
        QMutexLocker locker(&d->mutex);
        if (!d->active || level < d->thresholdFor(context ? context->domain() : QString()))
            return;
        const QString entry = formatEntry(level, context, message);
        forStderr = d->write(entry);
        if (forStderr.isEmpty() && d->mirrorToStderr && level >= Warning)
            forStderr = entry;
    }
    // Outside the lock: a message handler may well log in turn.
    if (!forStderr.isEmpty())
        qWarning().noquote() << forStderr;
}

void QKApplicationLog::info(const QKApplicationLogContext &context, const QString &message)
{
    log(Info, &context, message);
}

void QKApplicationLog::warning(const QKApplicationLogContext &context, const QString &message)
{
    log(Warning, &context, message);
}

QString QKApplicationLog::logFilePath() const
{
    return logPath();
}

bool QKApplicationLog::openLogFile() const
{
    // Nothing logged yet still shows an (empty) log rather than an error from the viewer.
    const QString path = logFilePath();
    QString reason;
    QFile file(path);
    if (!QKFile::createDirectoryAtPath(QFileInfo(path).path(), &reason) ||
        !file.open(QIODevice::Append)) {
        qWarning().noquote() << "QKApplicationLog: cannot create" << path
                             << (reason.isEmpty() ? file.errorString() : reason);
    }
    return QKWorkspace::openFile(path);
}

bool QKApplicationLog::_active() const
{
    QMutexLocker locker(&d->mutex);
    return d->active;
}

void QKApplicationLog::_setActive(bool active)
{
    {
        QMutexLocker locker(&d->mutex);
        d->active = active;
    }
    store(true, false, false);
}

uint QKApplicationLog::_defaultThreshold() const
{
    QMutexLocker locker(&d->mutex);
    return d->defaultThreshold;
}

void QKApplicationLog::_setThreshold(uint threshold, const QString &domain)
{
    {
        QMutexLocker locker(&d->mutex);
        if (domain.isEmpty()) {
            d->defaultThreshold = threshold;
        } else if (QKApplicationLogRule *rule = d->ruleFor(domain)) {
            rule->setThreshold(threshold);
        } else {
            d->rules.push_back(std::make_unique<QKApplicationLogRule>(domain, threshold));
        }
    }
    store(false, domain.isEmpty(), !domain.isEmpty());
}

QList<QKApplicationLogRule *> QKApplicationLog::_rules() const
{
    QMutexLocker locker(&d->mutex);
    QList<QKApplicationLogRule *> rules;
    rules.reserve(qsizetype(d->rules.size()));
    for (const auto &rule : d->rules)
        rules.append(rule.get());
    return rules;
}

void QKApplicationLog::_removeRule(QKApplicationLogRule *rule)
{
    {
        QMutexLocker locker(&d->mutex);
        const auto found = std::find_if(d->rules.begin(), d->rules.end(),
                                        [rule](const auto &owned) { return owned.get() == rule; });
        if (found == d->rules.end())
            return;
        d->rules.erase(found);
    }
    store(false, false, true);
}

void QKApplicationLog::_updateDefaults()
{
    store(true, true, true);
}

void QKApplicationLog::store(bool active, bool threshold, bool rules) const
{
    QVariantList ruleStates;
    bool activeNow;
    uint thresholdNow;
    {
        QMutexLocker locker(&d->mutex);
        activeNow = d->active;
        thresholdNow = d->defaultThreshold;
        if (rules)
            ruleStates = d->rulesState();
    }
    // Never under the mutex: the defaults may log.
    QKUserDefaults *defaults = QKUserDefaults::standardUserDefaults();
    if (active)
        defaults->setBool(activeNow, ActiveKey);
    if (threshold)
        defaults->setInteger(thresholdNow, DefaultThresholdKey);
    if (rules)
        defaults->setObject(ruleStates, RulesKey);
}
