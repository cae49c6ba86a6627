#pragma once

#include <boost/random/mersenne_twister.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid.hpp>
#include <memory>
#include <mutex>

#include "fs_uuid_table.h"
#include "kelvaro/jsr309/ms_control_factory.h"
#include "kelvaro/logger.h"
#include "media_session_table.h"

namespace kvx_media_server {

/// Everything long-lived that the callbacks, the commands and the shutdown need: the control library's factory, the two
/// tables, the logger lent to the library, and the source of uuids. There is one, made by the module's load and
/// destroyed by its shutdown or by a load that fails late; in between it is reached through `mod_globals`.
///
/// Instance and Destroy run on the module loader's thread only, while no callback can come. The tables lock themselves.
class ModGlobal {
 public:
  using UuidGenerator = boost::uuids::basic_random_generator<boost::mt19937>;

  /// The one instance, made at need and configured anew; null when that fails.
  static ModGlobal* Instance(bool enable_trace);
  /// Destroys the instance, if there is one. The factory must have been stopped, or never initialised.
  static void Destroy();

  ModGlobal(const ModGlobal&) = delete;
  ModGlobal& operator=(const ModGlobal&) = delete;

  boost::shared_ptr<kelvaro::jsr309::MSControlFactory>& GetMSCtrlFtry() { return msctrlftry_; }
  boost::shared_ptr<MediaSessionTable>& GetMSTable() { return mstable_; }
  boost::shared_ptr<FSUuidTable>& GetFSUuidTable() { return fsuuidtable_; }
  std::unique_ptr<kelvaro::LoggingIdLogger>& GetLogger() { return jsr_logger_; }
  /// Not safe to draw from on several threads: use DrawUuid.
  UuidGenerator& GetUuidGen() { return uuidgen_; }

  /// A fresh random uuid; any thread may call.
  boost::uuids::uuid DrawUuid();

 private:
  ModGlobal();
  ~ModGlobal();

  bool SelfConfig(bool enable_trace);

  static ModGlobal* pinstance_;

  // In the order in which the last owners must go, back to front: the library never touches the logger once it has been
  // stopped, not even while the factory is destroyed.
  boost::shared_ptr<kelvaro::jsr309::MSControlFactory> msctrlftry_;
  boost::shared_ptr<MediaSessionTable> mstable_;
  boost::shared_ptr<FSUuidTable> fsuuidtable_;
  std::unique_ptr<kelvaro::LoggingIdLogger> jsr_logger_;
  boost::mt19937 randgen_;  // guarded by uuid_mutex_
  UuidGenerator uuidgen_;   // guarded by uuid_mutex_
  std::mutex uuid_mutex_;
};

}  // namespace kvx_media_server

/// Null before a successful load, after a shutdown, and after a load that failed.
extern kvx_media_server::ModGlobal* mod_globals;
/// Path of the control library's configuration file; "" until the module's configuration names one.
extern const char* KELVARO_MEDIA_SERVER_CONFIG;
/// Path of the statistics filter file; null until the module's configuration names one.
extern const char* STATSFILTER;
