#include "Browser.h"

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include "tests/support/Patience.h"

namespace {

const int kLimit_ms = patient_ms(120000);

// A window of the browser is no narrower than 500 pixels, a frame in it is.
constexpr const char* kFrame = R"(<!DOCTYPE html><html><body>
<iframe src="page.html" style="width: %1px; height: 1000px; border: 0"></iframe>
<script>
window.onmessage = ({data}) => {
  document.documentElement.innerHTML = data.page;
  Object.assign(document.documentElement.dataset, data.measures);
};
</script></body></html>)";

constexpr const char* kMeasure = R"(<script>
const rights = [...document.querySelectorAll("body *")].map(e => e.getBoundingClientRect().right);
const right = Math.ceil(Math.max(document.documentElement.scrollWidth, ...rights));
parent.postMessage({page: document.documentElement.innerHTML,
  measures: {right, window: window.innerWidth}}, "*");
</script></body>)";

bool write(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QByteArray outputOf(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(kLimit_ms)) {
        process.kill();
        process.waitForFinished();
        return {};
    }
    return process.exitCode() == 0 ? process.readAllStandardOutput() : QByteArray();
}

QByteArray browse(const QStringList& arguments, const QString& page)
{
    const QTemporaryDir profile;
    return outputOf("chromium", QStringList{"--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
                                            "--no-first-run", "--disable-background-networking",
                                            "--disable-component-update", "--disable-sync",
                                            "--user-data-dir=" + profile.path()} +
                                    arguments + QStringList("file://" + page));
}

} // namespace

bool Browser::isThere()
{
    for (const char* program : {"chromium", "pdftotext"})
        if (QStandardPaths::findExecutable(program).isEmpty())
            return false;
    return true;
}

QByteArray Browser::elementsOf(const QString& page, int width_px)
{
    const QTemporaryDir directory;
    QFile original(page);
    if (!original.open(QIODevice::ReadOnly) ||
        !write(directory.filePath("page.html"), original.readAll().replace("</body>", kMeasure)) ||
        !write(directory.filePath("frame.html"),
               QByteArray(kFrame).replace("%1", QByteArray::number(width_px))))
        return {};
    return browse({"--virtual-time-budget=10000", "--dump-dom"}, directory.filePath("frame.html"));
}

QStringList Browser::printedPages(const QString& page)
{
    const QTemporaryDir directory;
    const QString pdf = directory.filePath("page.pdf");
    browse({"--no-pdf-header-footer", "--print-to-pdf=" + pdf}, page);
    QStringList pages = QString::fromUtf8(outputOf("pdftotext", {"-layout", pdf, "-"})).split('\f');
    pages.removeLast();
    return pages;
}
