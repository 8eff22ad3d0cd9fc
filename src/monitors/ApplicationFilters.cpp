#include "monitors/ApplicationFilters.h"

#include <string>

namespace vexa {

namespace {

const char* const kSystemApplications[] = {"Activity Monitor",
                                           "Address Book",
                                           "AirPort Utility",
                                           "App Store",
                                           "AppleScript Editor",
                                           "AppleScript Utility",
                                           "Audio MIDI Setup",
                                           "Automator",
                                           "Bluetooth File Exchange",
                                           "Boot Camp Assistant",
                                           "Calculator",
                                           "Calendar",
                                           "Chess",
                                           "ColorSync Utility",
                                           "Console",
                                           "Contacts",
                                           "Dashboard",
                                           "Dictionary",
                                           "DigitalColor Meter",
                                           "Directory",
                                           "Directory Utility",
                                           "Disk Utility",
                                           "DVD Player",
                                           "Expose",
                                           "Grab",
                                           "Grapher",
                                           "FaceTime",
                                           "Folder Actions Setup",
                                           "Font Book",
                                           "Front Row",
                                           "Game Center",
                                           "iCal",
                                           "iChat",
                                           "Image Capture",
                                           "iSync",
                                           "iTunes",
                                           "Java Preferences",
                                           "Keychain Access",
                                           "Launchpad",
                                           "Mail",
                                           "Messages",
                                           "Migration Assistant",
                                           "Mission Control",
                                           "Network Utility",
                                           "Notes",
                                           "ODBC Administrator",
                                           "Photo Booth",
                                           "Podcast Capture",
                                           "Podcast Publisher",
                                           "Preview",
                                           "QuickTime Player",
                                           "Reminders",
                                           "Remote Install Mac OS X",
                                           "Safari",
                                           "Script Editor",
                                           "Spaces",
                                           "Stickies",
                                           "System Information",
                                           "System Preferences",
                                           "System Profiler",
                                           "Terminal",
                                           "TextEdit",
                                           "Time Machine",
                                           "RAID Utility",
                                           "VoiceOver Utility",
                                           "X11",
                                           "/Developer",
                                           "/System/Library",
                                           "/opt",
                                           "/Library/Image Capture",
                                           "/Library/Application Support",
                                           "/Library/Scripts",
                                           "iTunesHelper",
                                           "Map",
                                           "Photos",
                                           "iBooks",
                                           "Xcode",
                                           "Siri"};

}  // namespace

nlohmann::json ApplicationFilters::systemFilter() {
  nlohmann::json filter = nlohmann::json::object();
  int key = 0;
  for (const char* name : kSystemApplications) filter[std::to_string(key++)] = name;
  return filter;
}

nlohmann::json ApplicationFilters::specialFilter() {
  return {
      {"LeftOverElement", {{"IgnoreLeftOver", {"com.microsoft.office"}}}},
      {"UninstallElement",
       {{"Caches", {"Chrome"}}, {"Preferences", {"com.google"}}, {"Binaries", {"com.microsoft"}}}}};
}

nlohmann::json ApplicationFilters::groupFilter() {
  return {{"com.microsoft", "Microsoft Office"}, {"com.adobe", "Adobe"}};
}

}  // namespace vexa
