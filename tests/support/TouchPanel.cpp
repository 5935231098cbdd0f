#include "support/TouchPanel.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <QDataStream>
#include <QWidget>

namespace {

constexpr int kWordBytes = 4;
constexpr quint64 kAtOnce = 1; // as the time of a bundle

sockaddr_in g_address = {};

sockaddr* address()
{
    return reinterpret_cast<sockaddr*>(&g_address);
}

/// A text ends with a zero byte, and what it takes up is a number of whole words.
QByteArray padded(QByteArray text)
{
    text.append('\0');
    while (text.size() % kWordBytes != 0)
        text.append('\0');
    return text;
}

template <class Number>
QByteArray bigEndian(Number number)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setFloatingPointPrecision(QDataStream::SinglePrecision);
    stream << number;
    return bytes;
}

/// One message about touches; types: those of the arguments after the word, 'i' or 'f' each.
QByteArray message(const QByteArray& word, const QByteArray& types, const QByteArray& arguments)
{
    const QByteArray text = padded("/tuio/2Dcur") + padded(",s" + types) + padded(word) + arguments;
    return bigEndian(static_cast<qint32>(text.size())) + text;
}

} // namespace

void TouchPanel::plugIn()
{
    const FileDescriptor free(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    g_address.sin_family = AF_INET;
    g_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof g_address;
    if (::bind(free.get(), address(), size) != 0 || ::getsockname(free.get(), address(), &size) != 0)
        qFatal("no port for the touch panel");
    qputenv("QT_QPA_GENERIC_PLUGINS", "tuiotouch:udp=" + QByteArray::number(ntohs(g_address.sin_port)));
}

TouchPanel::TouchPanel() : m_line(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}

void TouchPanel::tap(const QWidget& widget)
{
    press(widget);
    release();
}

void TouchPanel::press(const QWidget& widget)
{
    press(widget, widget.rect().center());
}

void TouchPanel::press(const QWidget& widget, const QPoint& place)
{
    ++m_touchNumber;
    touch(widget, place);
}

void TouchPanel::moveTo(const QWidget& widget, const QPoint& place)
{
    if (isPressed())
        touch(widget, place);
}

void TouchPanel::touch(const QWidget& widget, const QPoint& place)
{
    const QWidget& window = *widget.window();
    const QPointF position = widget.mapTo(&window, place);
    m_touches = {QPointF(position.x() / window.width(), position.y() / window.height())};
    send();
}

void TouchPanel::release()
{
    m_touches.clear();
    send();
}

void TouchPanel::send()
{
    QByteArray numbers;
    QByteArray places;
    for (const QPointF& touch : m_touches) {
        numbers += bigEndian(static_cast<qint32>(m_touchNumber));
        places +=
            message("set", "ifffff",
                    bigEndian(static_cast<qint32>(m_touchNumber)) + bigEndian(static_cast<float>(touch.x())) +
                        bigEndian(static_cast<float>(touch.y())) + QByteArray(3 * kWordBytes, '\0'));
    }
    const QByteArray bundle = padded("#bundle") + bigEndian(kAtOnce) +
                              message("alive", QByteArray(m_touches.size(), 'i'), numbers) + places +
                              message("fseq", "i", bigEndian(static_cast<qint32>(++m_frame)));
    if (::sendto(m_line.get(), bundle.constData(), static_cast<std::size_t>(bundle.size()), 0, address(),
                 sizeof g_address) != bundle.size())
        qFatal("a touch is lost");
}
