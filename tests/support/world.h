// SPDX-License-Identifier: Apache-2.0
//
// The files, properties and log of a test. Everything is below the private root that the test
// program has entered; EnterPrivateRoot makes sure of it.

#pragma once

#include <android-base/logging.h>

#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace android::vus {

// Makes this process see a root of its own: the host's programs and libraries, and an empty /data,
// /sys and /run. Ends the process if that cannot be had.
void EnterPrivateRoot();

// Empties /data, /sys and the properties.
void EmptyWorld();

void MakeDir(const std::string& path);
void WriteFile(const std::string& path, const std::string& text);  // makes the directory, too
std::string ReadFile(const std::string& path);                     // empty if there is none
void RemoveFile(const std::string& path);
void RemoveTree(const std::string& path);
void SetProperty(const char* name, const char* value);  // a read-only one, too

// Takes the log of the process for as long as it lives.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();

    std::vector<std::string> Messages();
    std::vector<std::string> Errors();  // those logged at ERROR
    std::vector<std::string> Lines();   // each behind the letter of its severity: "I text"
    void Clear();
    // For a test that takes the log over and still wants it here.
    void Add(base::LogSeverity severity, const std::string& message);

  private:
    std::mutex mutex_;
    std::vector<std::pair<base::LogSeverity, std::string>> lines_;
};

}  // namespace android::vus
