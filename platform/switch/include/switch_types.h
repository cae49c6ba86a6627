#pragma once

/// Plain types, enumerations and callback types that the parts of the switch API share.

#include "switch_causes.h"
#include "switch_event_types.h"
#include "switch_platform.h"

#define SWITCH_API_VERSION 5
#define SWITCH_RECOMMENDED_BUFFER_SIZE 8192
#define SWITCH_MAX_CODECS 50
#define MAX_FMTP_LEN 256
#define SWITCH_URL_SEPARATOR "://"
#define SWITCH_UUID_FORMATTED_LENGTH 256

#define SWITCH_SIGNAL_BOND_VARIABLE "signal_bond"
#define SWITCH_ORIGINATE_SIGNAL_BOND_VARIABLE "originate_signal_bond"
#define SWITCH_BRIDGE_UUID_VARIABLE "bridge_uuid"
#define SWITCH_ADVERTISED_MEDIA_IP_VARIABLE "advertised_media_ip"
#define SWITCH_REMOTE_MEDIA_IP_VARIABLE "remote_media_ip"
#define SWITCH_REMOTE_MEDIA_PORT_VARIABLE "remote_media_port"
#define SWITCH_LOCAL_MEDIA_IP_VARIABLE "local_media_ip"
#define SWITCH_LOCAL_MEDIA_PORT_VARIABLE "local_media_port"

typedef uint8_t switch_payload_t;
typedef uint16_t switch_port_t;
typedef uint8_t switch_byte_t;
typedef uintptr_t switch_size_t;
typedef int64_t switch_time_t;           ///< microseconds since the epoch
typedef int64_t switch_interval_time_t;  ///< microseconds
typedef uint32_t switch_codec_flag_t;
typedef uint32_t switch_module_flag_t;
typedef uint32_t switch_originate_flag_t;
typedef uint32_t switch_core_flag_t;

typedef enum { SWITCH_FALSE = 0, SWITCH_TRUE = 1 } switch_bool_t;

typedef enum {
  SWITCH_STATUS_SUCCESS = 0,
  SWITCH_STATUS_FALSE = 1,
  SWITCH_STATUS_TIMEOUT = 2,
  SWITCH_STATUS_RESTART = 3,
  SWITCH_STATUS_INTR = 4,
  SWITCH_STATUS_NOTIMPL = 5,
  SWITCH_STATUS_MEMERR = 6,
  SWITCH_STATUS_NOOP = 7,
  SWITCH_STATUS_RESAMPLE = 8,
  SWITCH_STATUS_GENERR = 9,
  SWITCH_STATUS_INUSE = 10,
  SWITCH_STATUS_BREAK = 11,
  SWITCH_STATUS_SOCKERR = 12,
  SWITCH_STATUS_MORE_DATA = 13,
  SWITCH_STATUS_NOTFOUND = 14,
  SWITCH_STATUS_UNLOAD = 15,
  SWITCH_STATUS_NOUNLOAD = 16,
  SWITCH_STATUS_IGNORE = 17,
  SWITCH_STATUS_TOO_SMALL = 18,
  SWITCH_STATUS_FOUND = 19,
  SWITCH_STATUS_CONTINUE = 20,
  SWITCH_STATUS_TERM = 21,
  SWITCH_STATUS_NOT_INITALIZED = 22,
  SWITCH_STATUS_TOO_LATE = 23,
  SWITCH_STATUS_XBREAK = 35,
  SWITCH_STATUS_WINBREAK = 730035
} switch_status_t;

typedef enum {
  SWITCH_LOG_DISABLE = -1,
  SWITCH_LOG_CONSOLE = 0,
  SWITCH_LOG_ALERT = 1,
  SWITCH_LOG_CRIT = 2,
  SWITCH_LOG_ERROR = 3,
  SWITCH_LOG_WARNING = 4,
  SWITCH_LOG_NOTICE = 5,
  SWITCH_LOG_INFO = 6,
  SWITCH_LOG_DEBUG = 7,
  SWITCH_LOG_INVALID = 64,
  SWITCH_LOG_DEBUG1 = 101,
  SWITCH_LOG_DEBUG2 = 102,
  SWITCH_LOG_DEBUG3 = 103,
  SWITCH_LOG_DEBUG4 = 104,
  SWITCH_LOG_DEBUG5 = 105,
  SWITCH_LOG_DEBUG6 = 106,
  SWITCH_LOG_DEBUG7 = 107,
  SWITCH_LOG_DEBUG8 = 108,
  SWITCH_LOG_DEBUG9 = 109,
  SWITCH_LOG_DEBUG10 = 110,
  SWITCH_LOG_UNINIT = 1000
} switch_log_level_t;

typedef enum {
  SWITCH_CHANNEL_ID_LOG = 0,
  SWITCH_CHANNEL_ID_LOG_CLEAN = 1,
  SWITCH_CHANNEL_ID_EVENT = 2,
  SWITCH_CHANNEL_ID_SESSION = 3
} switch_text_channel_t;

typedef enum {
  SWITCH_STACK_BOTTOM = (1 << 0),
  SWITCH_STACK_TOP = (1 << 1),
  SWITCH_STACK_UNSHIFT = (1 << 2),
  SWITCH_STACK_PUSH = (1 << 3)
} switch_stack_t;

typedef enum { SWITCH_CALL_DIRECTION_INBOUND = 0, SWITCH_CALL_DIRECTION_OUTBOUND = 1 } switch_call_direction_t;

typedef enum {
  SWITCH_CODEC_TYPE_AUDIO = 0,
  SWITCH_CODEC_TYPE_VIDEO = 1,
  SWITCH_CODEC_TYPE_T38 = 2,
  SWITCH_CODEC_TYPE_APP = 3
} switch_codec_type_t;

typedef enum {
  SWITCH_CODEC_FLAG_ENCODE = 1,
  SWITCH_CODEC_FLAG_DECODE = 2,
  SWITCH_CODEC_FLAG_SILENCE_START = 4,
  SWITCH_CODEC_FLAG_SILENCE_STOP = 8,
  SWITCH_CODEC_FLAG_SILENCE = 16,
  SWITCH_CODEC_FLAG_FREE_POOL = 32,
  SWITCH_CODEC_FLAG_AAL2 = 64,
  SWITCH_CODEC_FLAG_PASSTHROUGH = 128,
  SWITCH_CODEC_FLAG_READY = 256,
  SWITCH_CODEC_FLAG_HAS_ADJ_BITRATE = 0x4000,
  SWITCH_CODEC_FLAG_HAS_PLC = 0x8000,
  SWITCH_CODEC_FLAG_VIDEO_PATCHING = 0x10000
} switch_codec_flag_enum_t;

typedef enum {
  SWITCH_ENDPOINT_INTERFACE = 0,
  SWITCH_TIMER_INTERFACE = 1,
  SWITCH_DIALPLAN_INTERFACE = 2,
  SWITCH_CODEC_INTERFACE = 3,
  SWITCH_APPLICATION_INTERFACE = 4,
  SWITCH_API_INTERFACE = 5,
  SWITCH_FILE_INTERFACE = 6,
  SWITCH_SPEECH_INTERFACE = 7,
  SWITCH_DIRECTORY_INTERFACE = 8,
  SWITCH_CHAT_INTERFACE = 9,
  SWITCH_SAY_INTERFACE = 10,
  SWITCH_ASR_INTERFACE = 11,
  SWITCH_MANAGEMENT_INTERFACE = 12,
  SWITCH_LIMIT_INTERFACE = 13,
  SWITCH_CHAT_APPLICATION_INTERFACE = 14,
  SWITCH_JSON_API_INTERFACE = 15,
  SWITCH_DATABASE_INTERFACE = 16
} switch_module_interface_name_t;

typedef enum { SMODF_NONE = 0, SMODF_GLOBAL_SYMBOLS = 1 } switch_module_flag_enum_t;

typedef enum {
  CS_NEW = 0,
  CS_INIT = 1,
  CS_ROUTING = 2,
  CS_SOFT_EXECUTE = 3,
  CS_EXECUTE = 4,
  CS_EXCHANGE_MEDIA = 5,
  CS_PARK = 6,
  CS_CONSUME_MEDIA = 7,
  CS_HIBERNATE = 8,
  CS_RESET = 9,
  CS_HANGUP = 10,
  CS_REPORTING = 11,
  CS_DESTROY = 12,
  CS_NONE = 13
} switch_channel_state_t;

typedef enum {
  CCS_DOWN = 0,
  CCS_DIALING = 1,
  CCS_RINGING = 2,
  CCS_EARLY = 3,
  CCS_ACTIVE = 4,
  CCS_HELD = 5,
  CCS_RING_WAIT = 6,
  CCS_HANGUP = 7,
  CCS_UNHELD = 8
} switch_channel_callstate_t;

/// One bit of a leg's progress each. The order is the API's; only the flags that this switch sets are listed.
typedef enum {
  CF_ANSWERED = 1,
  CF_OUTBOUND = 2,
  CF_EARLY_MEDIA = 3,
  CF_BRIDGE_ORIGINATOR = 4,
  CF_UUID_BRIDGE_ORIGINATOR = 5,
  CF_TRANSFER = 6,
  CF_ACCEPT_CNG = 7,
  CF_REDIRECT = 8,
  CF_BRIDGED = 9,
  CF_HOLD = 10,
  CF_HOLD_BLEG = 11,
  CF_SERVICE = 12,
  CF_TAGGED = 13,
  CF_WINNER = 14,
  CF_REUSE_CALLER_PROFILE = 15,
  CF_CONTROLLED = 16,
  CF_PROXY_MODE = 17,
  CF_PROXY_OFF = 18,
  CF_SUSPEND = 19,
  CF_EVENT_PARSE = 20,
  CF_GEN_RINGBACK = 21,
  CF_RING_READY = 22,
  CF_FLAG_MAX = 64
} switch_channel_flag_t;

typedef enum {
  SWITCH_RING_READY_NONE = 0,
  SWITCH_RING_READY_RINGING = 1,
  SWITCH_RING_READY_QUEUED = 2
} switch_ring_ready_t;

typedef enum { SWITCH_PRIORITY_NORMAL = 0, SWITCH_PRIORITY_LOW = 1, SWITCH_PRIORITY_HIGH = 2 } switch_priority_t;

typedef enum {
  SWITCH_MEDIA_FLOW_SENDRECV = 0,
  SWITCH_MEDIA_FLOW_SENDONLY = 1,
  SWITCH_MEDIA_FLOW_RECVONLY = 2,
  SWITCH_MEDIA_FLOW_INACTIVE = 3,
  SWITCH_MEDIA_FLOW_DISABLED = 4
} switch_media_flow_t;

typedef enum { SWITCH_PVT_PRIMARY = 0, SWITCH_PVT_SECONDARY = 1 } switch_pvt_class_t;

typedef enum { SOF_NONE = 0 } switch_originate_flag_enum_t;
typedef enum { SCF_NONE = 0 } switch_core_flag_enum_t;

/// What switch_core_session_ctl can be asked. Those not listed are not served and answer -1.
typedef enum {
  SCSC_PAUSE_ALL = 2,
  SCSC_HUPALL = 3,
  SCSC_SHUTDOWN = 4,
  SCSC_CHECK_RUNNING = 5,
  SCSC_LOGLEVEL = 6,
  SCSC_SPS = 7,
  SCSC_MAX_SESSIONS = 10
} switch_session_ctl_t;

typedef struct switch_memory_pool switch_memory_pool_t;
typedef struct switch_core_session switch_core_session_t;
typedef struct switch_channel switch_channel_t;
typedef struct switch_event switch_event_t;
typedef struct switch_event_header switch_event_header_t;
typedef struct switch_event_node switch_event_node_t;
typedef struct switch_hashtable switch_hash_t;
typedef struct switch_frame switch_frame_t;
typedef struct switch_codec switch_codec_t;
typedef struct switch_codec_settings switch_codec_settings_t;
typedef struct switch_codec_fmtp switch_codec_fmtp_t;
typedef struct switch_codec_implementation switch_codec_implementation_t;
typedef struct switch_codec_interface switch_codec_interface_t;
typedef struct switch_api_interface switch_api_interface_t;
typedef struct switch_endpoint_interface switch_endpoint_interface_t;
typedef struct switch_loadable_module_interface switch_loadable_module_interface_t;
typedef struct switch_stream_handle switch_stream_handle_t;
typedef struct switch_xml* switch_xml_t;

typedef switch_status_t (*switch_module_load_t)(switch_loadable_module_interface_t**, switch_memory_pool_t*);
typedef switch_status_t (*switch_module_runtime_t)(void);
typedef switch_status_t (*switch_module_shutdown_t)(void);

typedef void (*switch_event_callback_t)(switch_event_t*);
typedef switch_status_t (*switch_api_function_t)(const char* cmd, switch_core_session_t* session,
                                                 switch_stream_handle_t* stream);

#define SWITCH_STANDARD_API(name) \
  static switch_status_t name(const char* cmd, switch_core_session_t* session, switch_stream_handle_t* stream)
