#pragma once

#include <QString>

/// The two editable parts of a serial number such as "OR3-07-00042".
struct SerialParts
{
    QString midfix;
    QString suffix;
};

/// Splits at "-": the second part is the midfix, the third the suffix, each as it stands
/// ("OR3-7-42" gives "7" and "42"); a part that is not there is empty. Any thread.
SerialParts splitSerialNumber(const QString& serial);

/// "OR3-%02d-%05d" of the parts as decimal integers; a part that is none counts as 0. Any thread.
QString composeSerialNumber(const SerialParts& parts);
