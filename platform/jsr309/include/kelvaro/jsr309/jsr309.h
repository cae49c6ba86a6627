/// Everything that an application of the control library needs.
#pragma once

#include "kelvaro/jsr309/event.h"
#include "kelvaro/jsr309/event_listener.h"
#include "kelvaro/jsr309/joinable.h"
#include "kelvaro/jsr309/jsr309_stats.h"
#include "kelvaro/jsr309/media_config.h"
#include "kelvaro/jsr309/media_server_lost_listener.h"
#include "kelvaro/jsr309/media_session.h"
#include "kelvaro/jsr309/media_session_stats.h"
#include "kelvaro/jsr309/ms_control_factory.h"
#include "kelvaro/jsr309/network_connection.h"
#include "kelvaro/jsr309/rtcp_stats_report.h"
#include "kelvaro/jsr309/rtp_timeout_listener.h"
#include "kelvaro/logger.h"
