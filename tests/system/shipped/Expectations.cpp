#include "Expectations.h"

QStringList only(const QStringList& calls, const QString& start)
{
    QStringList kept;
    for (const QString& call : calls)
        if (call.startsWith(start))
            kept.append(call.mid(start.size()));
    return kept;
}

QStringList opening(int width, int height)
{
    QStringList calls{QString("VIDIOC_S_FMT %1x%2 YUYV type 1").arg(width).arg(height),
                      "VIDIOC_REQBUFS count 4 type 1 memory 1"};
    for (int i = 0; i < 4; ++i)
        calls += {QString("VIDIOC_QUERYBUF %1 type 1 memory 1").arg(i),
                  QString("mmap %1 of %2 bytes").arg(i).arg(width * height * 2),
                  QString("VIDIOC_QBUF %1 type 1 memory 1").arg(i)};
    return calls << "VIDIOC_STREAMON type 1";
}

QStringList reopening(int width, int height)
{
    const QStringList calls = opening(width, height);
    return QStringList{calls.first(), "VIDIOC_REQBUFS count 0 type 1 memory 1"} + calls;
}

QStringList closing(int width, int height)
{
    QStringList calls{"VIDIOC_STREAMOFF type 1"};
    for (int i = 0; i < 4; ++i)
        calls += QString("munmap %1 of %2 bytes").arg(i).arg(width * height * 2);
    return calls;
}

QStringList registerWrites(int first)
{
    QStringList writes;
    for (const char* reg :
         {"35 01", "35 02", "35 0A", "35 0B", "34 00", "34 01", "34 02", "34 03", "34 04", "34 05"})
        writes += QString("%1 %2").arg(reg, QString::asprintf("%02X", first++));
    return writes;
}

QStringList valueWrites(const QStringList& calls)
{
    QStringList writes;
    for (const QString& bytes : only(calls, "i2c write "))
        if (bytes.size() == int(qstrlen("35 01 20")))
            writes += bytes;
    return writes;
}

QString titleOf(const SeenBox& box)
{
    return boxToJson(box)["icon"].toString().toLower() + ": " + box.title;
}

QString buttonsOf(const SeenBox& box)
{
    QStringList buttons = box.buttons;
    buttons.sort();
    return buttons.join(' ');
}
