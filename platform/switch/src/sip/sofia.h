#pragma once

/// The one way sofia-sip's headers come in, so that every file agrees on the types behind its callbacks.

namespace kvx_switch {
class SipAgent;
class SipDialog;
}  // namespace kvx_switch

#define SU_ROOT_MAGIC_T kvx_switch::SipAgent
#define NUA_MAGIC_T kvx_switch::SipAgent
#define NUA_HMAGIC_T kvx_switch::SipDialog

#include <sofia-sip/msg_addr.h>
#include <sofia-sip/nta_tag.h>
#include <sofia-sip/nua.h>
#include <sofia-sip/nua_tag.h>
#include <sofia-sip/sip_extra.h>
#include <sofia-sip/sip_header.h>
#include <sofia-sip/sip_status.h>
#include <sofia-sip/sip_tag.h>
#include <sofia-sip/su_log.h>
#include <sofia-sip/su_wait.h>
#include <sofia-sip/tport_tag.h>
#include <sofia-sip/url_tag.h>
