#pragma once

#include <stdint.h>

#include "vexa/Export.h"

// The system management controller's key interface. On Linux the controller of Apple hardware
// is the applesmc driver, whose temperatures appear as a hwmon chip named "applesmc" with the
// SMC's key names as labels ("TC0P"); these functions answer from it, with temperatures in the
// SMC's sp78 form. On other machines SMCOpen fails and nothing is read.

#ifdef __cplusplus
extern "C" {
#endif

// The 80-byte request and reply record of the SMC user client.
typedef struct SMCKeyData_t {
  uint32_t key;
  unsigned char vers[6];
  unsigned char pad0[2];
  unsigned char pLimitData[16];
  uint32_t dataSize;
  uint32_t dataType;
  unsigned char dataAttributes;
  unsigned char pad1[3];
  unsigned char result;
  unsigned char status;
  unsigned char data8;
  unsigned char pad2;
  uint32_t data32;
  unsigned char bytes[32];
} SMCKeyData_t;

typedef struct SMCVal_t {
  char key[5];
  uint32_t dataSize;
  char dataType[5];
  unsigned char bytes[32];
} SMCVal_t;

#define KERNEL_INDEX_SMC 2
#define SMC_CMD_READ_BYTES 5
#define SMC_CMD_READ_KEYINFO 9

// 0 when the machine has an SMC, else 1 (logged once).
VEXA_EXPORT int SMCOpen(void);
VEXA_EXPORT int SMCClose(void);
// One request: command 9 answers a key's size and type, command 5 its bytes. 0 on success.
VEXA_EXPORT int SMCCall(int index, SMCKeyData_t* inputStructure, SMCKeyData_t* outputStructure);
VEXA_EXPORT int SMCReadKey(const char* key, SMCVal_t* val);
// The key's temperature in degrees Celsius; 0.0 when it cannot be read or is not sp78.
VEXA_EXPORT double SMCGetTemperature(const char* key);
VEXA_EXPORT uint32_t _strtoul(const char* str, int size, int base);
VEXA_EXPORT void _ultostr(char* str, uint32_t val);

#ifdef __cplusplus
}
#endif
