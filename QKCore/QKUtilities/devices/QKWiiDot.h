#pragma once

#include "QKUtilitiesGlobal.h"

#include <QPointF>

/**
 * One infrared dot as the Wii Remote's camera sees it: a position scaled to the camera
 * (x from 0 to just under 1, y from 0 to about 0.75) and the size of the blob.
 */
class QKUTILITIES_EXPORT QKWiiDot
{
public:
    /** An empty dot: all zero, so not valid. */
    static QKWiiDot dot() { return QKWiiDot(); }

    QPointF position() const { return QPointF(m_x, m_y); }
    float x() const { return m_x; }
    float y() const { return m_y; }
    /** The blob size scaled so that the raw 14 is 1.0. */
    float size() const { return float(m_size) / 14.0f; }
    /** The raw 4-bit size, 0..15. */
    quint8 rawSize() const { return m_size; }
    /** False for an empty camera slot (raw size 15) and for a dot never seen (size 0). */
    bool isValid() const { return m_size != 0 && m_size != 15; }

    /** Decodes one 3-byte record of the camera's extended format. */
    void _setWithData(const quint8 *data);

private:
    float m_x = 0.0f;
    float m_y = 0.0f;
    quint8 m_size = 0;
};
