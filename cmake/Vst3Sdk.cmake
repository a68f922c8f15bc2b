# The VST3 SDK subset that Debian ships with the JUCE modules: interfaces and
# the few hosting sources it has, built once as a static library with the
# SDK's own warnings left alone. Our code sees it only as system headers.
set(VST3_SDK_ROOT /usr/share/juce/modules/juce_audio_processors/format_types/VST3_SDK
    CACHE PATH "Root of the VST3 SDK subset")
if(NOT EXISTS ${VST3_SDK_ROOT}/pluginterfaces/base/funknown.h)
  message(FATAL_ERROR "VST3 SDK not found in ${VST3_SDK_ROOT} (Debian package juce-modules-source-data)")
endif()
add_library(vst3sdk STATIC
  ${VST3_SDK_ROOT}/pluginterfaces/base/funknown.cpp
  ${VST3_SDK_ROOT}/pluginterfaces/base/coreiids.cpp
  ${VST3_SDK_ROOT}/pluginterfaces/base/ustring.cpp
  ${VST3_SDK_ROOT}/public.sdk/source/vst/vstinitiids.cpp
  ${VST3_SDK_ROOT}/public.sdk/source/vst/hosting/hostclasses.cpp
  ${VST3_SDK_ROOT}/public.sdk/source/vst/hosting/pluginterfacesupport.cpp
  ${VST3_SDK_ROOT}/public.sdk/source/common/memorystream.cpp
  ${VST3_SDK_ROOT}/base/source/fstring.cpp
  ${VST3_SDK_ROOT}/base/source/fobject.cpp
  ${VST3_SDK_ROOT}/base/source/baseiids.cpp
  ${VST3_SDK_ROOT}/base/thread/source/flock.cpp
)
target_include_directories(vst3sdk SYSTEM PUBLIC ${VST3_SDK_ROOT})
# One of these must be defined for everything that includes the SDK.
target_compile_definitions(vst3sdk PUBLIC RELEASE=1)
target_compile_options(vst3sdk PRIVATE -w)
set_target_properties(vst3sdk PROPERTIES POSITION_INDEPENDENT_CODE ON)
target_link_libraries(vst3sdk PUBLIC ${CMAKE_DL_LIBS} Threads::Threads)
