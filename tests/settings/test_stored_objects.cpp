#include <QDir>
#include <QtTest>

#include "QuickDirectory.h"
#include "platform/InstrumentPath.h"
#include "settings/GlobalIni.h"
#include "settings/IniFile.h"
#include "settings/SafeSettingsFile.h"
#include "settings/SettingsFiles.h"
#include "settings/StageFile.h"
#include "settings/StoredObjects.h"
#include "support/FileBytes.h"
#include "support/FileTime.h"
#include "support/LogRecorder.h"

namespace {

const QString kReason = QStringLiteral("holds an object that is not in order");

const QByteArray kList = "\\0\\0\\0\\t";
// A list of lists of lists ..., deeper than any stack.
const QByteArray kDeepLists = (kList + "\\0\\0\\0\\x1").repeated(300000);

const QByteArray kTooMany = kList + "\\xff\\xff\\xff\\xff";

QByteArray valueOf(const QByteArray& bytes)
{
    return "[Z stage]\nother=@Variant(" + bytes + ")\nStep=5\n";
}

// A list of two: what these bytes are, and one that is not in order.
QByteArray behind(const QByteArray& bytes)
{
    return valueOf(kList + "\\0\\0\\0\\x2" + bytes + kTooMany);
}

} // namespace

/// Objects that QSettings would build from a settings file, whatever they cost.
class TestStoredObjects : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_root = std::make_unique<QuickRoot>();
        QVERIFY(QDir().mkpath(QFileInfo(path()).path()));
    }
    void cleanup() { m_root.reset(); }

    // It is neither read, for the program would end, nor written: somebody else may need it.
    void whatIsNotInOrderIsFoundAndLeftAlone_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("list of four thousand millions") << valueOf(kTooMany);
        QTest::newRow("list of two thousand millions") << valueOf(kList + "\\x7f\\xff\\xff\\xff");
        QTest::newRow("texts") << valueOf("\\0\\0\\0\\v\\x7f\\xff\\xff\\xff");
        QTest::newRow("lists in lists") << valueOf(kDeepLists);
        QTest::newRow("list in a map") << valueOf("\\0\\0\\0\\b\\0\\0\\0\\x1\\0\\0\\0\\x2\\0k" + kTooMany);
        QTest::newRow("picture") << valueOf("\\0\\0\\0"
                                            "F\\0\\0\\0\\x1");
        QTest::newRow("pointer, the first that Qt 5 numbers anew") << valueOf("\\0\\0\\0\\x80");
        QTest::newRow("list by its name")
            << valueOf("\\0\\0\\0\\x7f\\0\\0\\0\\rQVariantList\\0\\xff\\xff\\xff\\xff");
        QTest::newRow("as date") << QByteArray("v=@DateTime(" + kList + "\\0\\xff\\xff\\xff\\xff)\n");
        QTest::newRow("escaped") << QByteArray("v=\\x40\\126ar\\x69\"ant\"(" + kList +
                                               "\\xff\\xff\\xff\\xff)\n");
        QTest::newRow("over two lines") << QByteArray("v=@Vari\\\nant(" + kList + "\\xff\\xff\\xff\\xff)\n");
        QTest::newRow("in a list") << QByteArray("v=1, @Variant(" + kList + "\\xff\\xff\\xff\\xff)\n");
        QTest::newRow("behind a number") << behind("\\0\\0\\0\\x2\\0\\0\\0\\x1");
        QTest::newRow("behind a text") << behind("\\0\\0\\0\\v\\0\\0\\0\\x1\\0\\0\\0\\x4\\0a\\0b");
        QTest::newRow("behind a map of one number")
            << behind("\\0\\0\\0\\b\\0\\0\\0\\x1\\0\\0\\0\\x2\\0k\\0\\0\\0\\x2\\0\\0\\0\\x1");
        QTest::newRow("at the very beginning") << QByteArray("@Variant(" + kTooMany + ")\n");
        QTest::newRow("behind what stands there") << QByteArray("@Variant(\nv=@Variant(" + kTooMany + ")\n");
    }

    void whatIsNotInOrderIsFoundAndLeftAlone()
    {
        QFETCH(QByteArray, content);
        QVERIFY(holdsUnsafeObject(content));
        putBytes(path(), content);
        const LogRecorder log;

        std::string value;
        QVERIFY(!ini_read("Z stage", "Step", "256", value, kStageFile));
        QCOMPARE(QString::fromStdString(value), QString("256"));
        const QString told = QString("[Error] \"%1\" %2").arg(kStageFile, kReason);
        QVERIFY2(log.messages().contains(told), qPrintable(log.messages().join('\n')));
        global_ini_t record{};
        loadStageFile(record);
        QCOMPARE(record.Z_step, 256);
        QVERIFY(!saveStageFile(record));
        const QString unsaved = QString("[Error] not saved: %1 %2").arg(kStageFile, kReason);
        QVERIFY2(log.messages().last().endsWith(unsaved), qPrintable(log.messages().last()));
        SafeSettingsFile settings(kStageFile);
        settings.settings().setValue("a", 1);
        QVERIFY(!settings.commit());
        QVERIFY(log.messages().last().contains(kReason));
        QCOMPARE(bytesOf(path()), content);
    }

    // A list is too long whose count says more than there are bytes behind it.
    void whatFollowsIsCountedByTheByte_data()
    {
        QTest::addColumn<QByteArray>("count");
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("unsafe");
        const auto row = [](const char* name, const char* count, const QByteArray& bytes, bool unsafe) {
            QTest::newRow(name) << QByteArray(count) << bytes << unsafe;
        };
        row("one, none there", "1", "", true);
        row("one", "1", "(", false);
        row("a backslash at the end", "1", "\\", false);
        row("a byte at the end", "1", "\\0", false);
        row("two, a byte at the end", "2", "\\0", true);
        row("two, two octal digits", "2", "\\17", true);
        row("eight is no octal digit", "2", "\\18", false);
        row("two, two hexadecimal digits", "2", "\\x1f", true);
        row("two, zero is a digit", "2", "\\x10", true);
        row("g is no hexadecimal digit", "2", "\\x1g", false);
        row("a sign is no hexadecimal digit", "2", "\\x1`", false);
        row("two, a letter of two bytes", "2", "\\x141", true);
        row("one, a quote", "1", "\"", true);
        row("one, nobody's letter", "1", "\\q", true);
        row("one, a zero behind a backslash", "1", QByteArray("\\\0", 2), true);
    }

    void whatFollowsIsCountedByTheByte()
    {
        QFETCH(QByteArray, count);
        QFETCH(QByteArray, bytes);
        QTEST(holdsUnsafeObject("v=@Variant(" + kList + "\\0\\0\\0\\x" + count + bytes), "unsafe");
    }

    // A list of lists of lists ..., as deep as is followed, and one deeper.
    void listsAreFollowedToADepth_data()
    {
        QTest::addColumn<int>("lists");
        QTest::addColumn<bool>("unsafe");
        QTest::newRow("32 lists and what the last one holds") << 32 << false;
        QTest::newRow("33") << 33 << true;
    }

    void listsAreFollowedToADepth()
    {
        QFETCH(int, lists);
        QTEST(holdsUnsafeObject(valueOf((kList + "\\0\\0\\0\\x1").repeated(lists))), "unsafe");
    }

    void whatQSettingsWritesIsTaken()
    {
        {
            QSettings settings(path(), QSettings::IniFormat);
            settings.setValue("float", 2.5F);
            settings.setValue("list", QVariantList{1, "two", QVariantList{3.0, QByteArray("four")}});
            settings.setValue("map", QVariantMap{{"a", 1}, {"b", QVariantMap{{"c", QStringList{"d", "e"}}}}});
            settings.setValue("hash", QVariantHash{{"a", QPoint(1, 2)}});
            settings.setValue("texts", QStringList{"a", "b,c", "@d"});
            settings.setValue("bytes", QByteArray("\0\xff\"\\", 4));
            settings.setValue("time", QDateTime(QDate(2024, 3, 9), QTime(7, 5), Qt::UTC));
            settings.setValue("date", QDate(2024, 3, 9));
            settings.setValue("letter", QChar('x'));
            settings.setValue("long", Q_INT64_C(1) << 40);
            settings.setValue("rect", QRectF(0.5, 1, 2, 3));
            settings.setValue("nothing", QVariant());
            settings.setValue("text", "@Variant(that is none)");
            settings.setValue("Z stage/Step", "7");
        }
        QVERIFY(bytesOf(path()).contains("@Variant(") && bytesOf(path()).contains("@DateTime("));
        QVERIFY(!holdsUnsafeObject(bytesOf(path())));
        std::string value;
        QVERIFY(ini_read("Z stage", "Step", "256", value, kStageFile));
        QCOMPARE(QString::fromStdString(value), QString("7"));
        QCOMPARE(readableSettingsPath(kStageFile), path());
        QVERIFY(!holdsUnsafeObject(""));
        QVERIFY(!holdsUnsafeObject("v=@Variant("));
        QVERIFY(!holdsUnsafeObject("v=\\"));
        QVERIFY(!holdsUnsafeObject("@@Variant(" + kTooMany));
        // Nobody knows such types, so that nothing is built.
        QVERIFY(!holdsUnsafeObject("v=@Variant( @\\x@)"));
        QVERIFY(!holdsUnsafeObject(valueOf("\\0\\0\\0\\x7f\\0\\0\\0\\x4theirs\\0")));
    }

    // Taken for itself, a letter would make a longer list than there are bytes for; left out, an
    // empty one of a list that is too long.
    void everyEscapedLetterIsTheByteThatItStandsFor_data()
    {
        QTest::addColumn<QByteArray>("letter");
        QTest::addColumn<int>("byte");
        int byte = 7;
        for (const char* letter : {"a", "b", "t", "n", "v", "f", "r"})
            QTest::newRow(letter) << QByteArray(letter) << byte++;
    }

    void everyEscapedLetterIsTheByteThatItStandsFor()
    {
        QFETCH(QByteArray, letter);
        QFETCH(int, byte);
        const QByteArray yes = "\\0\\0\\0\\x1\\x1";
        QVERIFY(!holdsUnsafeObject(valueOf(kList + "\\0\\0\\0\\" + letter + yes.repeated(byte))));
        QVERIFY(
            holdsUnsafeObject(valueOf(kList + ("\\" + letter).repeated(4) + QByteArray("\\0").repeated(8))));
    }

    void aFileIsLookedAtAgainOnlyWhenItHasChanged()
    {
        const QDateTime time = QDateTime::currentDateTime().addDays(-1);
        const QByteArray plain = "[Z stage]\nStep=5\n";
        const QByteArray unsafe = valueOf(kTooMany);
        const LogRecorder log;
        replace(plain, time);
        QCOMPARE(readableSettingsPath(kStageFile), path());
        // Of another size only, then of another time only.
        replace(unsafe, time);
        QCOMPARE(readableSettingsPath(kStageFile), QString(kNoSettingsFile));
        replace(QByteArray(unsafe.size(), '\n'), time.addSecs(1));
        QCOMPARE(readableSettingsPath(kStageFile), path());
        replace(unsafe, time.addSecs(2));
        QCOMPARE(readableSettingsPath(kStageFile), QString(kNoSettingsFile));
        QCOMPARE(readableSettingsPath(kStageFile), QString(kNoSettingsFile));
        QCOMPARE(log.messages().size(), 2);
    }

    // Else a save would make of a file that is taken one that is not.
    void everyPlainKindThatQSettingsWritesIsTaken_data()
    {
        QTest::addColumn<int>("kind");
        for (const int kind :
             {QMetaType::Bool,      QMetaType::Int,       QMetaType::UInt,  QMetaType::LongLong,
              QMetaType::ULongLong, QMetaType::Double,    QMetaType::QChar, QMetaType::QDate,
              QMetaType::QTime,     QMetaType::QDateTime, QMetaType::QRect, QMetaType::QRectF,
              QMetaType::QSize,     QMetaType::QSizeF,    QMetaType::QLine, QMetaType::QLineF,
              QMetaType::QPoint,    QMetaType::QPointF,   QMetaType::QUuid, QMetaType::Long,
              QMetaType::Short,     QMetaType::Char,      QMetaType::ULong, QMetaType::UShort,
              QMetaType::UChar,     QMetaType::Float,     QMetaType::SChar})
            QTest::newRow(QMetaType::typeName(kind)) << kind;
    }

    void everyPlainKindThatQSettingsWritesIsTaken()
    {
        QFETCH(int, kind);
        {
            QSettings settings(path(), QSettings::IniFormat);
            settings.setValue("value", QVariant(kind, nullptr));
            settings.setValue("list", QVariantList{QVariant(kind, nullptr)});
        }
        QVERIFY2(!holdsUnsafeObject(bytesOf(path())), bytesOf(path()));
    }

    // QSettings keeps a text with a zero in it within "@String(...)", and looks no further.
    void aTextThatLooksLikeAnObjectIsSavedAgainAndAgain_data()
    {
        QTest::addColumn<QString>("before");
        for (const char* before : {"", "a", "a b", "@", "1,2"})
            QTest::newRow(before) << QString(before);
    }

    void aTextThatLooksLikeAnObjectIsSavedAgainAndAgain()
    {
        QFETCH(QString, before);
        const QString text =
            before + QStringLiteral("@Variant(") + QString(3, QChar(0)) + QStringLiteral("\t");
        for (const int value : {1, 2, 3}) {
            SafeSettingsFile settings(kStageFile);
            if (value > 1)
                QCOMPARE(settings.settings().value("text").toString(), text);
            settings.settings().setValue("text", text);
            settings.settings().setValue("bytes", text.toLatin1());
            settings.settings().setValue("a", value);
            QVERIFY(settings.commit());
        }
        QCOMPARE(QSettings(readableSettingsPath(kStageFile), QSettings::IniFormat).value("a").toInt(), 3);
    }

    // At the end of the file its bytes come to an end too early, which is in order. A save puts others
    // behind it, and what it left would not be read any more.
    void aSaveThatWouldMakeATextAnObjectIsRefused_data()
    {
        QTest::addColumn<QByteArray>("before");
        QTest::newRow("behind a letter that is none of ASCII's") << QByteArray("\xe9");
        QTest::newRow("behind a blank") << QByteArray("a ");
    }

    void aSaveThatWouldMakeATextAnObjectIsRefused()
    {
        QFETCH(QByteArray, before);
        const QByteArray content = "[Z stage]\nStep=5\ntext=" + before + "@Variant(" + kList + "\\0\\0\n";
        QVERIFY(!holdsUnsafeObject(content));
        putBytes(path(), content);
        const LogRecorder log;
        {
            SafeSettingsFile settings(kStageFile);
            settings.settings().setValue("a", 1);
            QVERIFY(!settings.commit());
        }
        ini_write("Z stage", "Step", "6", kStageFile);
        QCOMPARE(bytesOf(path()), content);
        QCOMPARE(log.messages().filter(QString("not saved: %1 %2").arg(kStageFile, kReason)).size(), 2);
        std::string step;
        QVERIFY(ini_read("Z stage", "Step", "", step, kStageFile));
        QCOMPARE(step, std::string("5"));
    }

private:
    static QString path() { return instrumentPath(QString(kStageFile)); }

    static void replace(const QByteArray& content, const QDateTime& time)
    {
        putBytes(path(), content);
        QVERIFY(FileTime::setChanged(path(), time.toMSecsSinceEpoch()));
    }

    std::unique_ptr<QuickRoot> m_root;
};

QTEST_GUILESS_MAIN(TestStoredObjects)
#include "test_stored_objects.moc"
