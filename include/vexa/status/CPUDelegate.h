#pragma once

#include <cstdint>

#include "vexa/Export.h"

namespace vexa {

// Hears from CPUStatus on the sampling timer's thread. Every operation is optional.
class VEXA_EXPORT CPUDelegate {
 public:
  virtual ~CPUDelegate() = default;
  // One core's shares of the last period; core is the kernel's CPU number.
  virtual void cpuUsedWithCore(uint32_t core, float system, float user, float idle) {
    (void)core;
    (void)system;
    (void)user;
    (void)idle;
  }
  // All online cores together.
  virtual void cpuUsedWithSystem(float system, float user, float idle) {
    (void)system;
    (void)user;
    (void)idle;
  }
  // Processes and threads on the machine.
  virtual void processorWithTaskCount(int32_t taskCount, int32_t threadCount) {
    (void)taskCount;
    (void)threadCount;
  }
  virtual void loadAverageWith1m(float oneMinute, float fiveMinutes, float fifteenMinutes) {
    (void)oneMinute;
    (void)fiveMinutes;
    (void)fifteenMinutes;
  }
  // The processor temperature in degrees Celsius, when the machine has a sensor for it.
  virtual void cpuWithTemperature(double temperature) { (void)temperature; }
};

}  // namespace vexa
