#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

#include "status/SmcConnection.h"
#include "status/TemperatureSource.h"
#include "support/TempDir.h"
#include "vexa/status/SMC.h"

namespace vexa {
namespace smc_functions_test {

class SmcFunctionsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_.write("sys/class/hwmon/hwmon5/name", "applesmc\n");
    dir_.write("sys/class/hwmon/hwmon5/temp1_label", "TC0P\n");
    dir_.write("sys/class/hwmon/hwmon5/temp1_input", "59500\n");
    dir_.write("sys/class/hwmon/hwmon5/temp2_label", "TB0T\n");
    dir_.write("sys/class/hwmon/hwmon5/temp2_input", "-\n");
    SmcConnection::setRoot(dir_.path());
  }
  void TearDown() override { SmcConnection::setRoot("/"); }
  test::TempDir dir_;
};

TEST_F(SmcFunctionsTest, ReadsTheProcessorKeyAsSp78) {
  ASSERT_EQ(SMCOpen(), 0);
  SMCVal_t value{};
  ASSERT_EQ(SMCReadKey("TC0P", &value), 0);
  EXPECT_STREQ(value.key, "TC0P");
  EXPECT_STREQ(value.dataType, "sp78");
  EXPECT_EQ(value.dataSize, 2u);
  EXPECT_EQ(value.bytes[0], 0x3C);
  EXPECT_EQ(value.bytes[1], 0x80);
  EXPECT_DOUBLE_EQ(SMCGetTemperature("TC0P"), 59.5);
  // A key without a reading, and one the chip does not have.
  EXPECT_EQ(SMCGetTemperature("TB0T"), 0.0);
  EXPECT_EQ(SMCGetTemperature("ZZZZ"), 0.0);
  EXPECT_EQ(SMCClose(), 0);
  EXPECT_EQ(SMCGetTemperature("TC0P"), 0.0);
}

TEST_F(SmcFunctionsTest, NoChipNoConnection) {
  test::TempDir empty;
  SmcConnection::setRoot(empty.path());
  EXPECT_EQ(SMCOpen(), 1);
  SMCKeyData_t in{}, out{};
  EXPECT_NE(SMCCall(KERNEL_INDEX_SMC, &in, &out), 0);
  EXPECT_NE(SMCCall(7, &in, &out), 0);
  EXPECT_NE(SMCReadKey(nullptr, nullptr), 0);
}

TEST(SmcRecordTest, HasTheUserClientLayout) {
  EXPECT_EQ(sizeof(SMCKeyData_t), 80u);
  EXPECT_EQ(offsetof(SMCKeyData_t, dataSize), 28u);
  EXPECT_EQ(offsetof(SMCKeyData_t, data8), 42u);
  EXPECT_EQ(offsetof(SMCKeyData_t, bytes), 48u);
}

TEST(SmcRecordTest, KeysPackHighestByteFirst) {
  EXPECT_EQ(_strtoul("TC0P", 4, 16), 0x54433050u);
  EXPECT_EQ(_strtoul("TC0P", 0, 16), 0u);
  // Characters above 0x7F are sign-extended: masked unless base 16.
  EXPECT_EQ(_strtoul("\xff", 1, 10), 0xFFu);
  EXPECT_EQ(_strtoul("\xff", 1, 16), 0xFFFFFFFFu);
  char text[5];
  _ultostr(text, 0x73703738);
  EXPECT_STREQ(text, "sp78");
}

class Sp78EncodeTest : public ::testing::TestWithParam<double> {};

TEST_P(Sp78EncodeTest, EncodedBytesDecodeBack) {
  unsigned char bytes[2];
  SmcConnection::encodeSp78(GetParam(), bytes);
  EXPECT_NEAR(decodeSp78(bytes[0], bytes[1]), GetParam(), 1.0 / 64);
}

INSTANTIATE_TEST_SUITE_P(Values, Sp78EncodeTest,
                         ::testing::Values(59.5, 0.0, 1.0, 27.8, 45.125, 99.99, 120.0, -5.25));

}  // namespace smc_functions_test
}  // namespace vexa
