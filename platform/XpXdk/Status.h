#pragma once

// Statuses that the SDK's calls return. The numbers are the SDK's; callers test them as numbers.

namespace XpXdk {

using XP_STATUS = int; // 0: done

constexpr XP_STATUS statusOk = 0; // done
// Accepted by every caller exactly like success: the named table, row or entry does not exist on
// this chip, so there was nothing to do (9), an entry was not found (41), or stands already (42).
constexpr XP_STATUS statusNotPresent = 9;
constexpr XP_STATUS statusNotFound = 41;
constexpr XP_STATUS statusAlreadyExists = 42;

// Refusals. Every caller treats them as fatal.
constexpr XP_STATUS statusInvalidArgument = 1;
constexpr XP_STATUS statusInvalidDevice = 2;
constexpr XP_STATUS statusInvalidTable = 3;
constexpr XP_STATUS statusRowOutOfRange = 4;
constexpr XP_STATUS statusInvalidField = 5;
constexpr XP_STATUS statusInvalidWidth = 6;
constexpr XP_STATUS statusTableFull = 7;
constexpr XP_STATUS statusDuplicateKey = 8;

} // namespace XpXdk
