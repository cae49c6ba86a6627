#include "mod_global.h"

#include <switch.h>

#include <boost/make_shared.hpp>
#include <cstdint>

#include "kelvaro_media_server_logger.h"

namespace kvx_media_server {

ModGlobal* ModGlobal::pinstance_ = nullptr;

ModGlobal* ModGlobal::Instance(bool enable_trace) {
  if (pinstance_ == nullptr) pinstance_ = new ModGlobal;
  return pinstance_->SelfConfig(enable_trace) ? pinstance_ : nullptr;
}

void ModGlobal::Destroy() {
  delete pinstance_;
  pinstance_ = nullptr;
}

ModGlobal::ModGlobal() : randgen_(static_cast<uint32_t>(switch_time_now())), uuidgen_(randgen_) {}

ModGlobal::~ModGlobal() = default;

bool ModGlobal::SelfConfig(bool enable_trace) {
  jsr_logger_.reset(new KvrMediaServerLogger(enable_trace));
  if (!jsr_logger_->Init("jsr309", kelvaro::DEBUG_LOG_LEVEL)) return false;
  msctrlftry_ = boost::make_shared<kelvaro::jsr309::MSControlFactory>();
  mstable_ = boost::make_shared<MediaSessionTable>();
  fsuuidtable_ = boost::make_shared<FSUuidTable>();
  std::lock_guard<std::mutex> guard(uuid_mutex_);
  uuidgen_ = UuidGenerator(randgen_);
  return true;
}

boost::uuids::uuid ModGlobal::DrawUuid() {
  std::lock_guard<std::mutex> guard(uuid_mutex_);
  return uuidgen_();
}

}  // namespace kvx_media_server
