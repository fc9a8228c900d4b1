#include "QKException.h"

#include <cxxabi.h>
#include <execinfo.h>

#include <cstdlib>

namespace {

// backtrace_symbols gives "binary(mangled+0x1f) [0xaddr]"; demangle the name part.
QString demangledFrame(const char *symbol)
{
    const QByteArray frame(symbol);
    const qsizetype open = frame.indexOf('(');
    const qsizetype plus = frame.indexOf('+', open);
    if (open < 0 || plus <= open + 1)
        return QString::fromLocal8Bit(frame);
    const QByteArray mangled = frame.mid(open + 1, plus - open - 1);
    int status = 0;
    char *name = abi::__cxa_demangle(mangled.constData(), nullptr, nullptr, &status);
    if (status != 0 || !name) {
        std::free(name);
        return QString::fromLocal8Bit(frame);
    }
    const QString result = QString::fromLocal8Bit(frame.left(open + 1)) +
                           QString::fromLocal8Bit(name) + QString::fromLocal8Bit(frame.mid(plus));
    std::free(name);
    return result;
}

} // namespace

QKException::QKException(const QString &reason, const QVariantMap &userInfo, const QString &name)
    : m_name(name), m_reason(reason), m_userInfo(userInfo), m_stackTrace(currentStackTrace(1)),
      m_what(reason.toUtf8())
{}

QString QKException::currentStackTrace(int skipFrames)
{
    void *addresses[128];
    const int count = backtrace(addresses, 128);
    char **symbols = backtrace_symbols(addresses, count);
    if (!symbols)
        return QString();
    QStringList frames;
    for (int i = 1 + skipFrames; i < count; ++i)
        frames << demangledFrame(symbols[i]);
    std::free(symbols);
    return frames.join(QLatin1Char('\n'));
}
