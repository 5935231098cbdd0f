// Runs a harness on kept inputs: every file of the folders that the command line names.
#include <cstdint>
#include <cstdio>

#include <QByteArray>
#include <QDir>
#include <QFile>

#include "FuzzInput.h"

int main(int count, char** arguments)
{
    int inputs = 0;
    for (int i = 1; i < count; ++i) {
        const QDir folder(QString::fromLocal8Bit(arguments[i]));
        const QStringList names = folder.entryList(QDir::Files, QDir::Name);
        for (const QString& name : names) {
            QFile file(folder.filePath(name));
            if (!file.open(QIODevice::ReadOnly)) {
                std::fprintf(stderr, "%s cannot be read\n", qPrintable(file.fileName()));
                return 1;
            }
            std::fprintf(stderr, "%s\n", qPrintable(name));
            const QByteArray bytes = file.readAll();
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.constData()),
                                   static_cast<std::size_t>(bytes.size()));
            ++inputs;
        }
    }
    if (endOfReplay != nullptr)
        endOfReplay();
    std::fprintf(stderr, "%d inputs\n", inputs);
    return inputs > 0 ? 0 : 1;
}
