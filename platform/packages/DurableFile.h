#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "platform/vo/Log.h"

namespace KR {

/// Hands what a file holds to `parse`; not when it is not there. One that is larger than
/// `maxBytes`, or of which `parse` throws std::exception, is damaged: it is set aside under its
/// name with
/// ".damaged" after it, and reported in the log. False then, and when it is not there.
/// std::runtime_error when it cannot be read, or not set aside. Thread-safe.
bool readDurableFile(const std::string& path, std::size_t maxBytes, const vo::Logger& log,
                     const std::function<void(const std::string& text)>& parse);

/// Writes a file whole or not at all, whenever the process or the machine dies: the text is written
/// beside the file, made to last, and then takes the file's place. std::runtime_error when it
/// cannot be written. One thread a file at a time.
void writeDurableFile(const std::string& path, const std::string& text);

}  // namespace KR
