// The wolfEngine loader and the switching of wolfEngine's logging.
#pragma once

namespace krOpenSSL {

inline constexpr const char *kWolfEngineId = "wolfEngine";

/// What the log lines of the loader and of the logging control name as their origin. The line numbers beside them are
/// fixed: readers of the log know each event by its number, wherever the code moves.
inline constexpr const char *kWolfSource = "krWolfSSLFIPS.cpp";
inline constexpr const char *kWolfComponent = "wolfEngine";

/// Whether wolfEngine is in OpenSSL's list because a load brought it there.
bool wolfEngineIsListed() noexcept;

/// Gives back the functional reference that a load took, if one did.
void releaseWolfEngine() noexcept;

} // namespace krOpenSSL

/// Loads wolfEngine from its place, makes it OpenSSL's default for all algorithms and splices the delegating
/// signature functions into its methods. It then is the active engine, initialised.
/// @return 1; or 0 after a failure, which is logged. A load that failed after wolfEngine was found leaves it the
///         active engine, for the unload
int krWolfEngineLoad() noexcept;

/// Switches wolfEngine's logging off, unregisters the active engine and empties its handle. The engine stays in
/// OpenSSL's list, with what was spliced into its methods. Returns 1.
int krWolfEngineUnload() noexcept;

/// Sends wolfEngine the five logging commands until one fails. @p level counts for enabling only.
/// @return 1 when all succeeded, else 0. The error queue stays as it was
int krWolfEngineSetLogging(bool enable, unsigned int level) noexcept;

/// Where wolfEngine is; asked of the system until it knows. Empty on failure.
const char *krWolfEngineGetPath() noexcept;

/// wolfSSL's logging callback.
void krWolfSSLLogAdapter(int level, const char *message) noexcept;
