#include "settings/StoredObjects.h"

#include <cctype>
#include <cstring>

#include <QBuffer>
#include <QDataStream>
#include <QDateTime>
#include <QDebug>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QVariant>

#include "platform/InstrumentPath.h"
#include "settings/SettingsFiles.h"

const char* const kUnsafeObjectReason = "holds an object that is not in order";
const char* const kSpecialFileReason = "is no ordinary file";

namespace {

constexpr int kDeepest = 32;

// How an object begins in a value, and how its bytes are laid out.
struct ObjectForm
{
    const char* beginning;
    QDataStream::Version version;
};
constexpr ObjectForm kObjectForms[] = {
    {"@Variant(", QDataStream::Qt_4_0},
    {"@DateTime(", QDataStream::Qt_5_6},
};

// Before Qt 5 the kinds from here on had numbers that much higher.
constexpr quint32 kFirstMovedKind = 128;
constexpr quint32 kMovedBy = 97;
constexpr quint32 kNamedKind = 127;

int digitValue(char letter, int base)
{
    const int value = std::isdigit(static_cast<unsigned char>(letter)) != 0
                          ? letter - '0'
                          : std::tolower(static_cast<unsigned char>(letter)) - 'a' + 10;
    return std::isalnum(static_cast<unsigned char>(letter)) != 0 && value < base ? value : -1;
}

// The content with its escapes resolved and without quotes, line by line or not: every value
// that QSettings gets from it is a part of this.
QByteArray withoutEscapes(const QByteArray& content)
{
    QByteArray plain;
    for (int i = 0; i < content.size(); ++i) {
        if (content[i] == '"')
            continue;
        if (content[i] != '\\' || i + 1 >= content.size()) {
            plain += content[i];
            continue;
        }
        const char code = content[++i];
        const int base = code == 'x' ? 16 : 8;
        if (code == 'x' || digitValue(code, base) >= 0) {
            unsigned int letter = 0;
            i += code == 'x' ? 1 : 0;
            for (int digit = 0; i < content.size() && (digit = digitValue(content[i], base)) >= 0; ++i)
                letter = letter * static_cast<unsigned int>(base) + static_cast<unsigned int>(digit);
            --i;
            letter &= 0xFFFFU;
            plain += letter > 0xFFU ? '?' : static_cast<char>(letter);
            continue;
        }
        static constexpr char kCodes[] = "abfnrtv\"?'\\";
        static constexpr char kLetters[] = "\a\b\f\n\r\t\v\"?'\\";
        if (const char* found = std::strchr(kCodes, code); found != nullptr && code != '\0')
            plain += kLetters[found - kCodes];
    }
    return plain;
}

// Behind any other letter, as in "@@Variant(" and "@String(a@Variant(", the sign is part of a text.
// Behind a blank it may be, too, and then the text is taken for an object that nobody needs.
bool canPrecedeValue(char letter)
{
    return letter == '=' || letter == ',' || std::isgraph(static_cast<unsigned char>(letter)) == 0;
}

bool isInOrder(QDataStream& stream, int depth);

// Types that are no part of Qt are stored by their names, and so are those of Qt that the older
// form has no number for.
quint32 namedKind(QDataStream& stream)
{
    QByteArray name;
    stream >> name;
    return static_cast<quint32>(QMetaType::type(name.constData()));
}

// A list says how many follow, and memory is asked for before they are read.
bool isCountTrue(QDataStream& stream, quint32& count)
{
    stream >> count;
    return stream.status() != QDataStream::Ok || qint64(count) <= stream.device()->bytesAvailable();
}

bool areMembersInOrder(QDataStream& stream, int depth, bool named)
{
    quint32 count = 0;
    if (!isCountTrue(stream, count))
        return false;
    for (quint32 i = 0; i < count && stream.status() == QDataStream::Ok; ++i) {
        QString name;
        if (named)
            stream >> name;
        if (!isInOrder(stream, depth + 1))
            return false;
    }
    return true;
}

bool areTextsInOrder(QDataStream& stream)
{
    quint32 count = 0;
    if (!isCountTrue(stream, count))
        return false;
    QString text;
    for (quint32 i = 0; i < count && stream.status() == QDataStream::Ok; ++i)
        stream >> text;
    return true;
}

// Whether the bytes that follow can be made an object of. Where they end too early, QSettings
// takes them for no value, which is in order.
bool isInOrder(QDataStream& stream, int depth)
{
    if (depth > kDeepest)
        return false;
    const qint64 begin = stream.device()->pos();
    quint32 kind = 0;
    stream >> kind;
    const bool old = stream.version() < QDataStream::Qt_5_0;
    if (old && kind >= kFirstMovedKind && kind < QMetaType::User)
        kind -= kMovedBy;
    qint8 isNull = 0;
    if (!old)
        stream >> isNull;
    if (kind == kNamedKind || kind == QMetaType::User) {
        kind = namedKind(stream);
        // Of a kind that nobody knows nothing is built.
        if (kind == QMetaType::UnknownType)
            return true;
    }
    if (stream.status() != QDataStream::Ok)
        return true;

    switch (kind) {
    case QMetaType::QVariantList:
        return areMembersInOrder(stream, depth, false);
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash:
        return areMembersInOrder(stream, depth, true);
    case QMetaType::QStringList:
        return areTextsInOrder(stream);
    case QMetaType::UnknownType:
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::QChar:
    case QMetaType::QString:
    case QMetaType::QByteArray:
    case QMetaType::QDate:
    case QMetaType::QTime:
    case QMetaType::QDateTime:
    case QMetaType::QRect:
    case QMetaType::QRectF:
    case QMetaType::QSize:
    case QMetaType::QSizeF:
    case QMetaType::QLine:
    case QMetaType::QLineF:
    case QMetaType::QPoint:
    case QMetaType::QPointF:
    case QMetaType::QUuid:
    case QMetaType::Long:
    case QMetaType::Short:
    case QMetaType::Char:
    case QMetaType::ULong:
    case QMetaType::UShort:
    case QMetaType::UChar:
    case QMetaType::Float:
    case QMetaType::SChar: {
        // Holds no others, and reads no more than there is.
        stream.device()->seek(begin);
        QVariant value;
        stream >> value;
        return true;
    }
    default:
        return !QMetaType::isRegistered(static_cast<int>(kind));
    }
}

} // namespace

bool holdsUnsafeObject(const QByteArray& content)
{
    QByteArray plain = withoutEscapes(content);
    for (const ObjectForm& form : kObjectForms) {
        const int length = static_cast<int>(qstrlen(form.beginning));
        for (int at = plain.indexOf(form.beginning); at >= 0;
             at = plain.indexOf(form.beginning, at + length)) {
            if (at > 0 && !canPrecedeValue(plain[at - 1]))
                continue;
            QBuffer buffer(&plain);
            buffer.open(QIODevice::ReadOnly);
            buffer.seek(at + length);
            QDataStream stream(&buffer);
            stream.setVersion(form.version);
            if (!isInOrder(stream, 0))
                return true;
        }
    }
    return false;
}

bool isSpecialFile(const QString& path)
{
    const QFileInfo file(path);
    return file.exists() && !file.isFile() && !file.isDir();
}

QString readableSettingsPath(const QString& fixedPath)
{
    struct Look
    {
        qint64 size;
        QDateTime changed;
        const char* hindrance; // null: none
    };
    static QHash<QString, Look> looks;

    const QString path = instrumentPath(fixedPath);
    const QFileInfo now(path);
    const auto last = looks.constFind(path);
    // As QSettings itself tells whether it has to read a file again.
    if (last != looks.constEnd() && last->size == now.size() && last->changed == now.lastModified())
        return last->hindrance != nullptr ? QString(kNoSettingsFile) : path;
    const char* hindrance = isSpecialFile(path) ? kSpecialFileReason : nullptr;
    bool known = hindrance != nullptr;
    if (hindrance == nullptr) {
        QFile file(path);
        const bool opened = file.open(QIODevice::ReadOnly);
        if (opened && holdsUnsafeObject(file.readAll()))
            hindrance = kUnsafeObjectReason;
        // Of what could not be read nothing is known: the next time it is looked at again.
        known = opened && file.error() == QFileDevice::NoError;
    }
    if (known)
        looks.insert(path, {now.size(), now.lastModified(), hindrance});
    if (hindrance != nullptr)
        qDebug() << "[Error]" << fixedPath << hindrance;
    return hindrance != nullptr ? QString(kNoSettingsFile) : path;
}
