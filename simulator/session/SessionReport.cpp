#include "simulator/session/SessionReport.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QMap>
#include <QRegularExpression>
#include <QSaveFile>

#include "simulator/session/SessionRecord.h"

// A static library's resources do not register themselves; the macro must not be in a namespace.
static void registerTemplate()
{
    Q_INIT_RESOURCE(SessionReport);
}

namespace {

// Of all pictures together in base64, which is a third longer than the pictures themselves.
constexpr int kMostPictureBytes = 5'500'000;
constexpr int kWidths_px[] = {800, 640, 480, 320};
constexpr int kQuality = 74;

QString jpegOf(const QImage& picture, int width_px)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    const QImage scaled =
        picture.width() > width_px ? picture.scaledToWidth(width_px, Qt::SmoothTransformation) : picture;
    scaled.save(&buffer, "JPG", kQuality);
    return "data:image/jpeg;base64," + QString::fromLatin1(bytes.toBase64());
}

/// The pictures by file name, at the largest size at which all of them fit; without those that
/// cannot be read.
QJsonObject picturesOf(const SessionRecord& record, const QDir& directory)
{
    QJsonObject pictures;
    for (const int width_px : kWidths_px) {
        pictures = {};
        qint64 size_bytes = 0;
        for (const StepReport& step : record.steps)
            for (const QString& name : step.pictures) {
                const QImage picture(directory.filePath(name));
                if (picture.isNull())
                    continue;
                const QString url = jpegOf(picture, width_px);
                pictures[name] = url;
                size_bytes += url.size();
            }
        if (size_bytes <= kMostPictureBytes)
            break;
    }
    return pictures;
}

/// JSON that may stand in a page's script element, which ends at the first "</".
QByteArray forScript(const QJsonObject& json)
{
    return QJsonDocument(json).toJson(QJsonDocument::Compact).replace('<', "\\u003c");
}

QString row(const char* cell, const QStringList& texts)
{
    QString html = QStringLiteral("<tr>");
    for (const QString& text : texts)
        html += QStringLiteral("<%1>%2</%1>").arg(cell, text.toHtmlEscaped());
    return html + "</tr>\n";
}

QString textOf(const QJsonValue& value)
{
    if (value.isArray()) {
        QStringList texts;
        const QJsonArray items = value.toArray();
        for (const QJsonValue& item : items)
            texts.append(textOf(item));
        return texts.join(QStringLiteral(", "));
    }
    if (value.isObject()) {
        QStringList texts;
        const QJsonObject object = value.toObject();
        for (auto entry = object.begin(); entry != object.end(); ++entry)
            texts.append(entry.key() + ' ' + textOf(entry.value()));
        return texts.join(QStringLiteral(", "));
    }
    return value.isNull() ? QStringLiteral("none") : value.toVariant().toString();
}

/// A table of some members of each object in a list.
QString plainTable(const QJsonArray& items, const QStringList& members)
{
    QString html = "<table>" + row("th", members);
    for (const QJsonValue& item : items) {
        QStringList texts;
        for (const QString& member : members)
            texts.append(textOf(item.toObject()[member]));
        html += row("td", texts);
    }
    return html + "</table>\n";
}

/// What a reader without scripts sees: the run, and its steps or runs.
QString plainTables(const QJsonObject& record)
{
    QString html = QStringLiteral("<table>");
    for (const char* fact : {"kind", "simulated", "version", "host", "begun", "timeZone", "serialBefore",
                             "serialAfter", "seed", "options", "faults", "parameters", "holds", "stopped",
                             "stepsNotMade", "failedSaves", "settingsHarm"})
        if (record.contains(fact))
            html += row("td", {fact, textOf(record[fact])});
    html += QStringLiteral("</table>\n");
    if (record.contains("runs"))
        return html + plainTable(record["quantities"].toArray(), {"name", "unit", "columns"}) +
               plainTable(record["runs"].toArray(), {"seed", "answers", "verdict", "values"});
    const QJsonArray steps = record["steps"].toArray();
    QJsonArray measurements;
    for (const QJsonValue& step : steps) {
        const QJsonArray ofStep = step.toObject()["figures"].toArray();
        for (const QJsonValue& measurement : ofStep)
            measurements.append(measurement);
    }
    return html +
           plainTable(measurements,
                      {"name", "found", "truth", "error", "lowest", "highest", "unit", "verdict"}) +
           plainTable(steps, {"name", "text", "seconds", "verdict", "seen", "truth", "problems"});
}

/// The page with its placeholders filled in; what is filled in is not searched for placeholders.
QByteArray filledTemplate(const QMap<QByteArray, QByteArray>& contents)
{
    registerTemplate();
    QFile file(QStringLiteral(":/session/report.html"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray page = file.readAll();
    QByteArray filled;
    int done = 0;
    static const QRegularExpression place(QStringLiteral("@(table|record|pictures)@"));
    for (auto found = place.globalMatch(QString::fromLatin1(page)); found.hasNext();) {
        const QRegularExpressionMatch match = found.next();
        filled += page.mid(done, match.capturedStart() - done) + contents[match.captured(1).toLatin1()];
        done = match.capturedEnd();
    }
    return filled + page.mid(done);
}

bool write(const QJsonObject& record, const QJsonObject& pictures, const QString& directory)
{
    const QByteArray page = filledTemplate({{"table", plainTables(record).toUtf8()},
                                            {"record", forScript(record)},
                                            {"pictures", forScript(pictures)}});
    QSaveFile file(QDir(directory).filePath("report.html"));
    return !page.isEmpty() && file.open(QIODevice::WriteOnly) && file.write(page) == page.size() &&
           file.commit();
}

} // namespace

bool writeSessionReport(const SessionRecord& record, const QString& directory)
{
    return write(record.toJson(), picturesOf(record, QDir(directory)), directory);
}

bool writeRepetitionReport(const QJsonObject& record, const QString& directory)
{
    return write(record, {}, directory);
}
