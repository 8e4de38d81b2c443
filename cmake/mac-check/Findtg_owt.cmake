include(${CMAKE_CURRENT_LIST_DIR}/HeadersOnly.cmake)
orvel_headers_only(tg_owt::tg_owt tg_owt tg_owt/third_party/libyuv/include)
set_target_properties(tg_owt::tg_owt PROPERTIES
  INTERFACE_COMPILE_DEFINITIONS "WEBRTC_POSIX;WEBRTC_MAC;WEBRTC_HAVE_SCTP;WEBRTC_HAVE_DCSCTP;WEBRTC_USE_H264;RTC_ENABLE_VP9")
set(tg_owt_FOUND TRUE)
