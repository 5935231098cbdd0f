#include "settings/SerialNumber.h"

#include <QStringList>

SerialParts splitSerialNumber(const QString& serial)
{
    const QStringList parts = serial.split(QLatin1Char('-'));
    return {parts.value(1), parts.value(2)};
}

QString composeSerialNumber(const SerialParts& parts)
{
    return QString::asprintf("OR3-%02d-%05d", parts.midfix.toInt(), parts.suffix.toInt());
}
