#include <cstring>
#include <vector>

#include <QtTest>

#include "camera/SensorInitTable.h"

namespace {

using Rows = std::vector<SensorRegister>;

// Where rows stand in the table as one run from its n-th record on.
void compareRun(std::size_t first, const Rows& rows)
{
    for (std::size_t i = 0; i < rows.size(); ++i) {
        QCOMPARE(ov5642_vga_crop_init_reg[first + i].address, rows[i].address);
        QCOMPARE(ov5642_vga_crop_init_reg[first + i].value, rows[i].value);
    }
}

const SensorRegister* lastOf(quint16 address)
{
    for (std::size_t i = kInitRegisterCount; i-- > 0;)
        if (ov5642_vga_crop_init_reg[i].address == address)
            return &ov5642_vga_crop_init_reg[i];
    return nullptr;
}

} // namespace

class TestCameraInitTable : public QObject
{
    Q_OBJECT

private slots:
    void theTableHolds494WritesAndATerminator()
    {
        QCOMPARE(kInitTableLength, std::size_t(495));
        QCOMPARE(countBeforeTerminator(ov5642_vga_crop_init_reg, kInitTableLength), std::size_t(494));
        QCOMPARE(ov5642_vga_crop_init_reg[494].address, quint16(0xFFFF));
        QCOMPARE(ov5642_vga_crop_init_reg[494].value, quint8(0xFF));
    }

    void aRecordIsFourBytesWithTheAddressLowByteFirst()
    {
        static_assert(sizeof(SensorRegister) == 4);
        const quint8 expected[] = {0x03, 0x31, 0x93, 0x00};
        QCOMPARE(std::memcmp(&ov5642_vga_crop_init_reg[0], expected, sizeof expected), 0);
        for (const SensorRegister& record : ov5642_vga_crop_init_reg)
            QCOMPARE(record.pad, quint8(0));
    }

    void itBeginsWithTheClockTheResetAndThePads()
    {
        compareRun(0, {{0x3103, 0x93}, {0x3008, 0x82}, {0x3017, 0x7F}, {0x3018, 0xFC}});
    }

    void itEndsWithManualControlAndTheCropWindow()
    {
        compareRun(474, {{0x3503, 0x07}, {0x3501, 0x30}, {0x3502, 0x00}, {0x350A, 0x00}, {0x350B, 0x00},
                         {0x3406, 0x01}, {0x3400, 0x04}, {0x3401, 0x00}, {0x3402, 0x04}, {0x3403, 0x00},
                         {0x3404, 0x04}, {0x3405, 0x00}, {0x3804, 0x02}, {0x3805, 0x80}, {0x3806, 0x01},
                         {0x3807, 0xE0}, {0x3824, 0x13}, {0x3825, 0x08}, {0x3826, 0x01}, {0x3827, 0x00}});
    }

    void outputSizeAndFormatStaySet_data()
    {
        QTest::addColumn<int>("address");
        QTest::addColumn<int>("value");
        QTest::newRow("width, high") << 0x3808 << 0x02;
        QTest::newRow("width, low") << 0x3809 << 0x80;
        QTest::newRow("height, high") << 0x380A << 0x01;
        QTest::newRow("height, low") << 0x380B << 0xE0;
        QTest::newRow("YUYV") << 0x4300 << 0x30;
        QTest::newRow("frame length, high") << 0x380E << 0x03;
        QTest::newRow("frame length, low") << 0x380F << 0xE8;
    }

    void outputSizeAndFormatStaySet()
    {
        QFETCH(int, address);
        QFETCH(int, value);
        const SensorRegister* record = lastOf(address);
        QVERIFY(record != nullptr);
        QCOMPARE(int(record->value), value);
    }

    void noWriteIsTheTerminator()
    {
        for (std::size_t i = 0; i < kInitRegisterCount; ++i) {
            QVERIFY(ov5642_vga_crop_init_reg[i].address >= 0x3000);
            QVERIFY(ov5642_vga_crop_init_reg[i].address < 0x6000);
        }
    }

    // Addresses and values, weighted by their place, so that no row may change or move.
    void everyRowIsInItsPlace()
    {
        quint64 sum = 0;
        for (std::size_t i = 0; i < kInitTableLength; ++i)
            sum = sum * 31 + ov5642_vga_crop_init_reg[i].address * quint64(256) +
                  ov5642_vga_crop_init_reg[i].value;
        QCOMPARE(sum, quint64(0x6f1b77e758cb4252ULL));
    }

    void aTableWithoutATerminatorCountsAsEmpty()
    {
        const Rows rows(2000, SensorRegister{0x3000, 0});
        QCOMPARE(countBeforeTerminator(rows.data(), rows.size()), std::size_t(0));
        QCOMPARE(countBeforeTerminator(rows.data(), 0), std::size_t(0));
    }

    void theTerminatorIsLookedForAmong1024Records()
    {
        Rows rows(2000, SensorRegister{0x3000, 0});
        rows[1024].address = kTableTerminator;
        QCOMPARE(countBeforeTerminator(rows.data(), rows.size()), std::size_t(0));
        rows[1023].address = kTableTerminator;
        QCOMPARE(countBeforeTerminator(rows.data(), rows.size()), std::size_t(1023));
        rows[0].address = kTableTerminator;
        QCOMPARE(countBeforeTerminator(rows.data(), rows.size()), std::size_t(0));
    }
};

QTEST_GUILESS_MAIN(TestCameraInitTable)
#include "test_camera_init_table.moc"
