#pragma once

/// What a module registers with the switch, and the codec records behind it. All memory is the module's pool.

#include "switch_apr.h"
#include "switch_types.h"

typedef switch_status_t (*switch_stream_handle_write_function_t)(switch_stream_handle_t* handle, const char* fmt, ...)
    PRINTF_FUNCTION(2, 3);
typedef switch_status_t (*switch_stream_handle_raw_write_function_t)(switch_stream_handle_t* handle, uint8_t* data,
                                                                     switch_size_t datalen);
typedef uint8_t* (*switch_stream_handle_read_function_t)(switch_stream_handle_t* handle, int* len);

/// Where a command writes its answer: a heap buffer that grows. Whoever made the stream frees `data`.
struct switch_stream_handle {
  switch_stream_handle_read_function_t read_function;
  switch_stream_handle_write_function_t write_function;
  switch_stream_handle_raw_write_function_t raw_write_function;
  void* data;
  void* end;
  switch_size_t data_size;
  switch_size_t data_len;
  switch_size_t alloc_len;
  switch_size_t alloc_chunk;
  switch_event_t* param_event;
};

struct switch_codec_settings {
  union {
    struct {
      int unused;
    } audio;
    struct {
      uint32_t bandwidth;
      int32_t width;
      int32_t height;
      uint8_t try_hardware_encoder;
      uint8_t fps;
      char config_profile_name[64];
    } video;
  };
};

struct switch_codec_fmtp {
  uint32_t actual_samples_per_second;
  int bits_per_second;
  int microseconds_per_packet;
  int max_ptime;
  int min_ptime;
  int stereo;
  int sprop_stereo;
  void* private_info;
};

typedef enum { SCC_VIDEO_GEN_KEYFRAME = 0, SCC_VIDEO_BANDWIDTH = 1 } switch_codec_control_command_t;
typedef enum { SCCT_NONE = 0, SCCT_STRING = 1, SCCT_INT = 2 } switch_codec_control_type_t;

typedef switch_status_t (*switch_core_codec_init_func_t)(switch_codec_t* codec, switch_codec_flag_t flags,
                                                         const switch_codec_settings_t* codec_settings);
typedef switch_status_t (*switch_core_codec_encode_func_t)(switch_codec_t* codec, switch_codec_t* other_codec,
                                                           void* decoded_data, uint32_t decoded_data_len,
                                                           uint32_t decoded_rate, void* encoded_data,
                                                           uint32_t* encoded_data_len, uint32_t* encoded_rate,
                                                           unsigned int* flag);
typedef switch_status_t (*switch_core_codec_decode_func_t)(switch_codec_t* codec, switch_codec_t* other_codec,
                                                           void* encoded_data, uint32_t encoded_data_len,
                                                           uint32_t encoded_rate, void* decoded_data,
                                                           uint32_t* decoded_data_len, uint32_t* decoded_rate,
                                                           unsigned int* flag);
typedef switch_status_t (*switch_core_codec_video_encode_func_t)(switch_codec_t* codec, switch_frame_t* frame);
typedef switch_status_t (*switch_core_codec_video_decode_func_t)(switch_codec_t* codec, switch_frame_t* frame);
typedef switch_status_t (*switch_core_codec_control_func_t)(switch_codec_t* codec, switch_codec_control_command_t cmd,
                                                            switch_codec_control_type_t ctype, void* cmd_data,
                                                            switch_codec_control_type_t atype, void* cmd_arg,
                                                            switch_codec_control_type_t* rtype, void** ret_data);
typedef switch_status_t (*switch_core_codec_destroy_func_t)(switch_codec_t* codec);
typedef switch_status_t (*switch_core_codec_fmtp_parse_func_t)(const char* fmtp, switch_codec_fmtp_t* codec_fmtp);

/// One way of a codec: a rate, a bit rate and a packet time. The list shows what was added last first.
struct switch_codec_implementation {
  switch_codec_type_t codec_type;
  switch_payload_t ianacode;
  char* iananame;
  char* fmtp;
  uint32_t samples_per_second;
  uint32_t actual_samples_per_second;
  int bits_per_second;
  int microseconds_per_packet;
  uint32_t samples_per_packet;
  uint32_t decoded_bytes_per_packet;
  uint32_t encoded_bytes_per_packet;
  uint8_t number_of_channels;
  int codec_frames_per_packet;
  switch_core_codec_init_func_t init;
  switch_core_codec_encode_func_t encode;
  switch_core_codec_decode_func_t decode;
  switch_core_codec_video_encode_func_t encode_video;
  switch_core_codec_video_decode_func_t decode_video;
  switch_core_codec_control_func_t codec_control;
  switch_core_codec_destroy_func_t destroy;
  uint32_t codec_id;
  uint32_t impl_id;
  char* modname;
  struct switch_codec_implementation* next;
};

struct switch_codec_interface {
  const char* interface_name;
  switch_codec_implementation_t* implementations;
  switch_core_codec_fmtp_parse_func_t parse_fmtp;
  uint32_t codec_id;
  switch_thread_rwlock_t* rwlock;
  int refs;  // guarded by reflock
  switch_mutex_t* reflock;
  char* modname;
  switch_loadable_module_interface_t* parent;
  struct switch_codec_interface* next;
};

/// A codec in use: initialised from an implementation by switch_core_codec_init.
struct switch_codec {
  switch_codec_interface_t* codec_interface;
  const switch_codec_implementation_t* implementation;
  char* fmtp_in;
  char* fmtp_out;
  uint32_t flags;
  switch_memory_pool_t* memory_pool;
  void* private_info;
  switch_payload_t agreed_pt;
  switch_mutex_t* mutex;
  struct switch_codec* next;
  switch_core_session_t* session;
  switch_frame_t* cur_frame;
};

/// A console command.
struct switch_api_interface {
  const char* interface_name;
  const char* desc;
  switch_api_function_t function;
  const char* syntax;
  switch_thread_rwlock_t* rwlock;
  int refs;  // guarded by reflock
  switch_mutex_t* reflock;
  switch_loadable_module_interface_t* parent;
  struct switch_api_interface* next;
};

/// Everything one module offers. Kinds that this switch does not serve keep their list head, always null.
struct switch_loadable_module_interface {
  const char* module_name;
  switch_endpoint_interface_t* endpoint_interface;
  struct switch_timer_interface* timer_interface;
  struct switch_dialplan_interface* dialplan_interface;
  switch_codec_interface_t* codec_interface;
  struct switch_application_interface* application_interface;
  struct switch_chat_application_interface* chat_application_interface;
  switch_api_interface_t* api_interface;
  struct switch_json_api_interface* json_api_interface;
  struct switch_file_interface* file_interface;
  struct switch_speech_interface* speech_interface;
  struct switch_directory_interface* directory_interface;
  struct switch_chat_interface* chat_interface;
  struct switch_say_interface* say_interface;
  struct switch_asr_interface* asr_interface;
  struct switch_management_interface* management_interface;
  struct switch_limit_interface* limit_interface;
  struct switch_database_interface* database_interface;
  switch_thread_rwlock_t* rwlock;
  int refs;  // guarded by the reflock that all interfaces of the module share
  switch_memory_pool_t* pool;
};

/// Keeps an interface, and so its module, from going away; UNPROTECT gives it back.
#define PROTECT_INTERFACE(_it)                        \
  if (_it) {                                          \
    switch_mutex_lock(_it->reflock);                  \
    switch_thread_rwlock_rdlock(_it->parent->rwlock); \
    switch_thread_rwlock_rdlock(_it->rwlock);         \
    _it->refs++;                                      \
    _it->parent->refs++;                              \
    switch_mutex_unlock(_it->reflock);                \
  }
#define UNPROTECT_INTERFACE(_it)                      \
  if (_it) {                                          \
    switch_mutex_t* _reflock = _it->reflock;          \
    switch_mutex_lock(_reflock);                      \
    switch_thread_rwlock_unlock(_it->rwlock);         \
    switch_thread_rwlock_unlock(_it->parent->rwlock); \
    _it->refs--;                                      \
    _it->parent->refs--;                              \
    switch_mutex_unlock(_reflock);                    \
  }
