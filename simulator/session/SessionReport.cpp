#include "simulator/session/SessionReport.h"

#include <QBuffer>
#include <QDir>
#include <QImage>
#include <QMap>
#include <QSaveFile>

#include "simulator/session/FocusCurve.h"
#include "simulator/session/SessionRecord.h"

namespace {

// All pictures together, as they stand in the file; their base64 form is a third longer.
constexpr int kMostPictureBytes = 5'500'000;
constexpr int kWidths_px[] = {800, 640, 480, 320};
constexpr int kQuality = 74;

constexpr const char* kStyle = R"(<style>
:root { --ink: #1c2733; --soft: #5c6b7a; --line: #dde3ea; --ground: #f4f6f9; --good: #14794a;
  --bad: #b3261e; --accent: #0077b6; }
* { box-sizing: border-box; }
body { margin: 0; background: var(--ground); color: var(--ink);
  font: 15px/1.5 system-ui, "DejaVu Sans", sans-serif; }
header { background: #13293d; color: #fff; padding: 28px 0 24px; }
header h1 { margin: 0 0 4px; font-size: 26px; font-weight: 600; }
header p { margin: 0; color: #c6d3df; }
.page { max-width: 1040px; margin: 0 auto; padding: 0 20px; }
.verdict { display: inline-block; margin-top: 14px; padding: 6px 16px; border-radius: 18px;
  font-weight: 600; color: #fff; }
.verdict.good { background: var(--good); color: #fff; }
.verdict.bad { background: var(--bad); color: #fff; }
section { background: #fff; border: 1px solid var(--line); border-radius: 10px; margin: 20px 0;
  padding: 18px 22px; }
h2 { margin: 0 0 12px; font-size: 19px; }
h3 { margin: 0; font-size: 16px; }
table { border-collapse: collapse; width: 100%; }
th { text-align: left; color: var(--soft); font-weight: 600; font-size: 13px; }
th, td { padding: 5px 10px 5px 0; border-bottom: 1px solid var(--line); vertical-align: top; }
td.n, th.n { text-align: right; font-variant-numeric: tabular-nums; }
td a { color: inherit; text-decoration-color: var(--line); }
.good { color: var(--good); } .bad { color: var(--bad); font-weight: 600; }
.soft { color: var(--soft); }
.step { border-top: 1px solid var(--line); padding: 16px 0; }
.step:first-of-type { border-top: 0; }
.step dl { display: grid; grid-template-columns: 74px 1fr; margin: 6px 0 0; gap: 2px 10px; }
dt { color: var(--soft); } dd { margin: 0; overflow-wrap: anywhere; }
.mark { float: right; font-size: 13px; }
.pictures { display: grid; grid-template-columns: repeat(auto-fill, minmax(400px, 1fr)); gap: 12px;
  margin-top: 10px; }
figure { margin: 0; } figure img { width: 100%; display: block; border: 1px solid var(--line);
  border-radius: 6px; }
figcaption { font-size: 12px; color: var(--soft); }
pre { background: #f8fafc; border: 1px solid var(--line); border-radius: 6px; padding: 10px 12px;
  overflow-x: auto; font: 13px/1.45 "DejaVu Sans Mono", monospace; margin: 6px 0 16px; }
pre .add { display: block; background: #e2f4e9; } pre .del { display: block; background: #fbe4e2; }
pre .same { display: block; color: var(--soft); }
svg.curve { width: 100%; height: auto; font: 12px system-ui, "DejaVu Sans", sans-serif; fill: var(--soft); }
svg .grid { stroke: var(--line); } svg .truth { stroke: var(--good); stroke-dasharray: 5 4; }
svg polyline { fill: none; stroke: var(--accent); stroke-width: 2; }
svg .sample { fill: var(--accent); } svg .best { fill: var(--bad); }
@media print { body { background: #fff; } section { break-inside: avoid-page; } }
</style>)";

QString escaped(const QString& text)
{
    return text.toHtmlEscaped().replace('\n', "<br>");
}

QString verdict(bool holds)
{
    return holds ? QStringLiteral("<span class=\"good\">&#10003; as it should be</span>")
                 : QStringLiteral("<span class=\"bad\">&#10007; not as it should be</span>");
}

QByteArray jpegOf(const QImage& picture, int width_px)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    const QImage scaled =
        picture.width() > width_px ? picture.scaledToWidth(width_px, Qt::SmoothTransformation) : picture;
    scaled.save(&buffer, "JPG", kQuality);
    return bytes.toBase64();
}

/// The pictures by file name, at the largest size at which all of them fit.
QMap<QString, QByteArray> picturesOf(const SessionRecord& record, const QDir& directory)
{
    QMap<QString, QByteArray> pictures;
    for (const int width_px : kWidths_px) {
        pictures.clear();
        qint64 size_bytes = 0;
        for (const StepReport& step : record.steps)
            for (const QString& name : step.pictures) {
                pictures[name] = jpegOf(QImage(directory.filePath(name)), width_px);
                size_bytes += pictures[name].size();
            }
        if (size_bytes <= kMostPictureBytes)
            break;
    }
    return pictures;
}

QString header(const SessionRecord& record)
{
    const bool good = record.holds();
    const QString faults = record.faults.isEmpty() ? QStringLiteral("instrument in good order")
                                                   : "fault: " + escaped(record.faults.join(", "));
    QString html =
        QStringLiteral("<header><div class=\"page\"><h1>ORLA verifier: session report</h1>"
                       "<p>%1 &middot; seed %2 &middot; %3 &middot; %4 s</p>"
                       "<span class=\"verdict %5\">%6 of %7 steps as they should be%8</span></div></header>")
            .arg(record.begun, QString::number(record.seed), faults, number(record.elapsed_s),
                 good ? "good" : "bad", QString::number(record.stepsThatHold()),
                 QString::number(record.plannedSteps),
                 record.harm.isEmpty() ? QString() : QStringLiteral("; settings files suffered"));
    return html;
}

QString listSection(const QString& title, const QStringList& lines, const QString& otherwise)
{
    QString html = "<h3>" + title + "</h3>";
    if (lines.isEmpty())
        return html + "<p class=\"soft\">" + otherwise + "</p>";
    return html + "<pre>" + lines.join('\n').toHtmlEscaped() + "</pre>";
}

QString operatorSection(const SessionRecord& record)
{
    QStringList boxes;
    for (const StepReport& step : record.steps)
        for (const SeenBox& box : step.boxes)
            boxes.append(QStringLiteral("%1: [%2] %3 -> %4%5")
                             .arg(step.name, box.title, box.text.simplified(), box.answer,
                                  box.expected ? "" : "   (unexpected)"));
    QString html = "<section><h2>What the operator met</h2>";
    if (!record.stopped.isEmpty())
        html += "<p class=\"bad\">" + escaped(record.stopped) +
                " did not end in time, and the program was stopped.</p>";
    return html + listSection("Boxes and dialogs", boxes, "None came up.") +
           listSection("Errors in the log", record.errorLines, "None.") +
           listSection("Controls that were left locked", record.findings.lockedControls, "None.") +
           listSection("Harm to settings files", record.harm,
                       "None: every file is as it was, or was changed as it should be.") +
           "</section>";
}

QString figureRow(const StepReport& step, const Figure& figure)
{
    const int decimals = figure.tolerance < 0.01 ? 5 : figure.tolerance < 0.1 ? 4 : 2;
    return QStringLiteral("<tr><td><a href=\"#%1\">%2</a></td><td class=\"n\">%3</td><td class=\"n\">%4</td>"
                          "<td class=\"n\">%5</td><td class=\"n\">&plusmn;%6</td><td>%7</td><td>%8</td></tr>")
        .arg(step.name, escaped(figure.name), number(figure.found, decimals), number(figure.truth, decimals),
             number(figure.error(), decimals), number(figure.tolerance, decimals), escaped(figure.unit),
             verdict(figure.holds()));
}

QString figures(const SessionRecord& record)
{
    QString rows;
    for (const StepReport& step : record.steps)
        for (const Figure& figure : step.result.figures)
            rows += figureRow(step, figure);
    if (rows.isEmpty())
        return {};
    return "<section><h2>Results against the truth</h2><table><tr><th>result</th><th class=\"n\">found</th>"
           "<th class=\"n\">true</th><th class=\"n\">error</th><th class=\"n\">allowed</th><th>unit</th>"
           "<th></th></tr>" +
           rows + "</table></section>";
}

QString overview(const SessionRecord& record)
{
    QString rows;
    for (const StepReport& step : record.steps)
        rows += QStringLiteral("<tr><td><a href=\"#%1\">%1</a></td><td>%2</td><td class=\"n\">%3 s</td>"
                               "<td>%4</td></tr>")
                    .arg(step.name, escaped(step.text), number(step.elapsed_s, 1), verdict(step.holds()));
    return "<section><h2>Steps</h2><table><tr><th>step</th><th>the operator ...</th><th class=\"n\">time</th>"
           "<th></th></tr>" +
           rows + "</table></section>";
}

QString stepDetails(const StepReport& step, const QMap<QString, QByteArray>& pictures)
{
    QString html = QStringLiteral("<div class=\"step\" id=\"%1\"><span class=\"mark\">%2</span><h3>%1 "
                                  "<span class=\"soft\">%3</span></h3><dl>")
                       .arg(step.name, verdict(step.holds()), escaped(step.text));
    html += "<dt>window</dt><dd>" + escaped(step.result.seen) + "</dd>";
    if (!step.result.truth.isEmpty())
        html += "<dt>truth</dt><dd>" + escaped(step.result.truth) + "</dd>";
    if (!step.trouble.isEmpty())
        html += "<dt>trouble</dt><dd class=\"bad\">" + escaped(step.trouble) + "</dd>";
    html += "</dl><div class=\"pictures\">";
    for (const QString& name : step.pictures)
        html += QStringLiteral("<figure><img alt=\"%1\" src=\"data:image/jpeg;base64,%2\">"
                               "<figcaption>%1</figcaption></figure>")
                    .arg(name, QString::fromLatin1(pictures[name]));
    return html + "</div></div>";
}

QString details(const SessionRecord& record, const QDir& directory)
{
    const QMap<QString, QByteArray> pictures = picturesOf(record, directory);
    QString html = "<section><h2>Step by step</h2>";
    for (const StepReport& step : record.steps)
        html += stepDetails(step, pictures);
    return html + "</section>";
}

QString curve(const SessionRecord& record)
{
    const QString svg = focusCurveSvg(record.findings);
    return svg.isEmpty() ? QString() : "<section><h2>Focus curve of the autofocus</h2>" + svg + "</section>";
}

QString settings(const SessionRecord& record)
{
    struct Look
    {
        const char* style;
        const char* mark;
    };
    static constexpr Look kLooks[] = {{"same", "  "}, {"del", "- "}, {"add", "+ "}};
    QString html = "<section><h2>Settings files, before and after</h2>";
    for (const FileDifference& file : record.settings) {
        html += "<h3>" + escaped(file.fixedPath) + "</h3>";
        if (file.isSame()) {
            html += "<p class=\"soft\">Unchanged.</p>";
            continue;
        }
        html += "<pre>";
        for (const DifferenceLine& line : file.lines)
            html += QStringLiteral("<span class=\"%1\">%2%3</span>")
                        .arg(kLooks[line.kind].style, kLooks[line.kind].mark, line.text.toHtmlEscaped());
        html += "</pre>";
    }
    return html + "</section>";
}

} // namespace

bool writeSessionReport(const SessionRecord& record, const QString& directory)
{
    const QString html = "<!DOCTYPE html><html lang=\"en\"><head><meta charset=\"utf-8\">"
                         "<meta name=\"viewport\" content=\"width=device-width\">"
                         "<title>Session report</title>" +
                         QString::fromLatin1(kStyle) + "</head><body>" + header(record) +
                         "<main class=\"page\">" + figures(record) + curve(record) + operatorSection(record) +
                         overview(record) + details(record, QDir(directory)) + settings(record) +
                         "</main></body></html>\n";
    QSaveFile file(QDir(directory).filePath("report.html"));
    const QByteArray bytes = html.toUtf8();
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.commit();
}
