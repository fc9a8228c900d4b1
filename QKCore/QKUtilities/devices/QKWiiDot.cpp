#include "QKWiiDot.h"

// The third byte carries the two high bits of each coordinate above the size.
void QKWiiDot::_setWithData(const quint8 *data)
{
    m_x = float(data[0] + ((data[2] & 0x30) * 16)) * 0.0009765625f;
    m_y = float(data[1] + ((data[2] & 0xC0) * 4)) * 0.0009765625f;
    m_size = data[2] & 0x0F;
}
