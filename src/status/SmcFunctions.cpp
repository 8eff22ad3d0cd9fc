#include <cmath>
#include <cstring>
#include <mutex>

#include "status/MachineFiles.h"
#include "status/ProcParsers.h"
#include "status/SmcConnection.h"
#include "status/TemperatureSource.h"
#include "vexa/status/SMC.h"
#include "vexa/util/SystemLog.h"

namespace vexa {
namespace {

std::mutex smcLock;
std::string smcRoot = "/";
std::optional<std::string> chipFolder;
bool loggedMissing = false;

// The kernel result the SMC user client gives for an unknown key or request.
constexpr int kNotFound = 0x84;

}  // namespace

void SmcConnection::setRoot(const std::string& root) {
  std::lock_guard lock(smcLock);
  smcRoot = root;
  chipFolder.reset();
}

std::string SmcConnection::root() {
  std::lock_guard lock(smcLock);
  return smcRoot;
}

bool SmcConnection::open() {
  std::lock_guard lock(smcLock);
  const auto files = MachineFiles::underRoot(smcRoot);
  for (const std::string& entry : files->list("/sys/class/hwmon")) {
    const std::string folder = "/sys/class/hwmon/" + entry;
    if (trimmedValue(files->read(folder + "/name")) == "applesmc") {
      chipFolder = folder;
      return true;
    }
  }
  if (!loggedMissing) {
    loggedMissing = true;
    SystemLog::log("SMC: no applesmc chip on this machine");
  }
  return false;
}

void SmcConnection::close() {
  std::lock_guard lock(smcLock);
  chipFolder.reset();
}

std::optional<double> SmcConnection::temperature(const std::string& key) {
  std::lock_guard lock(smcLock);
  if (!chipFolder) return std::nullopt;
  const auto files = MachineFiles::underRoot(smcRoot);
  for (const HwmonChip& chip : readHwmonChips(*files)) {
    if (chip.name != "applesmc") continue;
    for (const HwmonSensor& sensor : chip.sensors) {
      if (sensor.label == key && sensor.path.rfind(*chipFolder, 0) == 0) return sensor.celsius;
    }
  }
  return std::nullopt;
}

void SmcConnection::encodeSp78(double celsius, unsigned char bytes[2]) {
  // decodeSp78 reads both bytes as signed: pick the low byte first, then the high byte that
  // makes up the difference.
  const int value = static_cast<int>(std::lround(celsius * 64.0)) * 4;
  const int low = (value & 0xFF) >= 0x80 ? (value & 0xFF) - 0x100 : (value & 0xFF);
  bytes[0] = static_cast<unsigned char>(((value - low) / 256) & 0xFF);
  bytes[1] = static_cast<unsigned char>(low & 0xFF);
}

}  // namespace vexa

extern "C" {

int SMCOpen(void) { return vexa::SmcConnection::open() ? 0 : 1; }

int SMCClose(void) {
  vexa::SmcConnection::close();
  return 0;
}

int SMCCall(int index, SMCKeyData_t* inputStructure, SMCKeyData_t* outputStructure) {
  if (index != KERNEL_INDEX_SMC || !inputStructure || !outputStructure) return vexa::kNotFound;
  char key[5];
  _ultostr(key, inputStructure->key);
  const auto celsius = vexa::SmcConnection::temperature(key);
  if (!celsius) return vexa::kNotFound;
  std::memset(outputStructure, 0, sizeof *outputStructure);
  outputStructure->key = inputStructure->key;
  if (inputStructure->data8 == SMC_CMD_READ_KEYINFO) {
    outputStructure->dataSize = 2;
    outputStructure->dataType = _strtoul("sp78", 4, 16);
    return 0;
  }
  if (inputStructure->data8 == SMC_CMD_READ_BYTES) {
    vexa::SmcConnection::encodeSp78(*celsius, outputStructure->bytes);
    return 0;
  }
  return vexa::kNotFound;
}

int SMCReadKey(const char* key, SMCVal_t* val) {
  if (!key || !val) return vexa::kNotFound;
  SMCKeyData_t input{};
  SMCKeyData_t output{};
  std::memset(val, 0, sizeof *val);
  std::strncpy(val->key, key, 4);
  input.key = _strtoul(key, 4, 16);
  input.data8 = SMC_CMD_READ_KEYINFO;
  int result = SMCCall(KERNEL_INDEX_SMC, &input, &output);
  if (result != 0) return result;
  val->dataSize = output.dataSize;
  _ultostr(val->dataType, output.dataType);
  input.dataSize = val->dataSize;
  input.data8 = SMC_CMD_READ_BYTES;
  result = SMCCall(KERNEL_INDEX_SMC, &input, &output);
  if (result == 0) std::memcpy(val->bytes, output.bytes, sizeof val->bytes);
  return result;
}

double SMCGetTemperature(const char* key) {
  SMCVal_t val{};
  if (SMCReadKey(key, &val) != 0 || val.dataSize == 0 || std::strcmp(val.dataType, "sp78") != 0) {
    return 0.0;
  }
  return vexa::decodeSp78(val.bytes[0], val.bytes[1]);
}

uint32_t _strtoul(const char* str, int size, int base) {
  if (!str || size < 1) return 0;
  uint32_t total = 0;
  for (int i = 0; i < size && str[i]; ++i) {
    const auto character =
        static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(str[i])));
    const uint32_t part = base == 16 ? character : (character & 0xFF);
    total += part << (8 * (size - 1 - i));
  }
  return total;
}

void _ultostr(char* str, uint32_t val) {
  if (!str) return;
  str[0] = static_cast<char>(val >> 24);
  str[1] = static_cast<char>((val >> 16) & 0xFF);
  str[2] = static_cast<char>((val >> 8) & 0xFF);
  str[3] = static_cast<char>(val & 0xFF);
  str[4] = '\0';
}

}  // extern "C"
