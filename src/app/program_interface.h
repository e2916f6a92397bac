// SPDX-License-Identifier: Apache-2.0
#pragma once

// The names of what other programs see of us on the session bus; part of the program's interface, and never
// translated. share/expert.mardeck.sentrel1.xml describes the object.
namespace sentrel::program_interface {

inline constexpr auto busName = "expert.mardeck.sentrel";
inline constexpr auto path = "/expert/mardeck/sentrel";
inline constexpr auto name = "expert.mardeck.sentrel1";
inline constexpr auto application = "org.freedesktop.Application";
inline constexpr auto tokenEntry = "activation-token";  ///< of the platform data

// Why something was refused.
inline constexpr auto lockedError = "expert.mardeck.sentrel1.Error.Locked";
inline constexpr auto offError = "expert.mardeck.sentrel1.Error.Off";
inline constexpr auto pausedError = "expert.mardeck.sentrel1.Error.Paused";
inline constexpr auto impossibleError = "expert.mardeck.sentrel1.Error.Impossible";
inline constexpr auto misusedError = "org.freedesktop.DBus.Error.InvalidArgs";
inline constexpr auto noDisplayError = "org.freedesktop.DBus.Error.NotSupported";

}  // namespace sentrel::program_interface
