// The machine of a native program without VELMORA_MACHINE. It has three audio endpoints, the
// installed effect and the services that audio needs. One endpoint has a driver's effect in the
// legacy slot and an active session.
#include "platform/hosted/machine_state.h"

namespace velmora::hosted {

const std::string_view builtin_machine = R"machine(Windows Registry Editor Version 5.00

[HKEY_LOCAL_MACHINE\SOFTWARE]

[HKEY_LOCAL_MACHINE\SOFTWARE\Classes]

[HKEY_LOCAL_MACHINE\SOFTWARE\Classes\CLSID]

[HKEY_LOCAL_MACHINE\SOFTWARE\Classes\CLSID\{631D9145-CACF-44D7-861B-5D82ADD8C84F}]

[HKEY_LOCAL_MACHINE\SOFTWARE\Classes\CLSID\{631D9145-CACF-44D7-861B-5D82ADD8C84F}\InprocServer32]
@="C:\\Program Files\\Velmora\\velmora_windows_apo.dll"
"ThreadingModel"="Both"

[HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft]

[HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows]

[HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion]
"ProgramFilesDir"="C:\\Program Files"

[HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion\MMDevices]

[HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion\MMDevices\Audio]

[HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion\MMDevices\Audio\Capture]

[HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion\MMDevices\Audio\Capture\{566bf9d7-c55a-45f8-a1a6-e55e9b9b1325}]
"DeviceState"=dword:00000001

[HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion\MMDevices\Audio\Capture\{566bf9d7-c55a-45f8-a1a6-e55e9b9b1325}\FxProperties]

[HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion\MMDevices\Audio\Capture\{566bf9d7-c55a-45f8-a1a6-e55e9b9b1325}\Properties]
"{a45c254e-df1c-4efd-8020-67d146a850e0},2"="Microphone"
"{b3f8fa53-0004-438e-9003-51a46e139bfc},6"="High Definition Audio"

[HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion\MMDevices\Audio\Render]

[HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion\MMDevices\Audio\Render\{b7decc0c-5d96-4f7f-a65b-eda9cf0c26ef}]
"DeviceState"=dword:00000001

[HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion\MMDevices\Audio\Render\{b7decc0c-5d96-4f7f-a65b-eda9cf0c26ef}\FxProperties]
"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},6"="{9063CBD4-3561-449D-8011-E21BBB69B9DB}"

[HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion\MMDevices\Audio\Render\{b7decc0c-5d96-4f7f-a65b-eda9cf0c26ef}\Properties]
"{a45c254e-df1c-4efd-8020-67d146a850e0},2"="Speakers"
"{b3f8fa53-0004-438e-9003-51a46e139bfc},6"="High Definition Audio"

[HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion\MMDevices\Audio\Render\{b37523a5-3b4a-4ee2-a463-513755ac0ecd}]
"DeviceState"=dword:00000001

[HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion\MMDevices\Audio\Render\{b37523a5-3b4a-4ee2-a463-513755ac0ecd}\FxProperties]

[HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion\MMDevices\Audio\Render\{b37523a5-3b4a-4ee2-a463-513755ac0ecd}\Properties]
"{a45c254e-df1c-4efd-8020-67d146a850e0},2"="Headphones"
"{b3f8fa53-0004-438e-9003-51a46e139bfc},6"="High Definition Audio"

[HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows NT]

[HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows NT\CurrentVersion]
"SystemRoot"="C:\\Windows"

[HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows NT\CurrentVersion\Audio]
"DisableProtectedAudioDG"=dword:00000001

[HKEY_LOCAL_MACHINE\SOFTWARE\VelmoraStandIn]

[HKEY_LOCAL_MACHINE\SOFTWARE\VelmoraStandIn\Audio]
"DefaultRender"="{0.0.0.00000000}.{b7decc0c-5d96-4f7f-a65b-eda9cf0c26ef}"

[HKEY_LOCAL_MACHINE\SOFTWARE\VelmoraStandIn\Audio\{0.0.0.00000000}.{b7decc0c-5d96-4f7f-a65b-eda9cf0c26ef}]
"Volume"="0.75"
"Muted"=dword:00000000
"Peak"="0.25"

[HKEY_LOCAL_MACHINE\SOFTWARE\VelmoraStandIn\Audio\{0.0.0.00000000}.{b7decc0c-5d96-4f7f-a65b-eda9cf0c26ef}\Sessions]

[HKEY_LOCAL_MACHINE\SOFTWARE\VelmoraStandIn\Audio\{0.0.0.00000000}.{b7decc0c-5d96-4f7f-a65b-eda9cf0c26ef}\Sessions\0]
"State"=dword:00000001
"ProcessId"=dword:00000000

[HKEY_LOCAL_MACHINE\SYSTEM]

[HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet]

[HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Services]

[HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Services\AudioEndpointBuilder]
"DisplayName"="Windows Audio Endpoint Builder"
"DependOnService"=hex(7):50,00,6c,00,75,00,67,00,50,00,6c,00,61,00,79,00,00,00,\
  00,00

[HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Services\Audiosrv]
"DisplayName"="Windows Audio"
"DependOnService"=hex(7):41,00,75,00,64,00,69,00,6f,00,45,00,6e,00,64,00,70,00,\
  6f,00,69,00,6e,00,74,00,42,00,75,00,69,00,6c,00,64,00,65,00,72,00,00,00,52,\
  00,70,00,63,00,53,00,73,00,00,00,00,00

[HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Services\PlugPlay]
"DisplayName"="Plug and Play"

[HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Services\RpcSs]
"DisplayName"="Remote Procedure Call (RPC)"

[HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Services\SonicMonitor]
"DisplayName"="Sonic Monitor"
"DependOnService"=hex(7):41,00,75,00,64,00,69,00,6f,00,73,00,72,00,76,00,00,00,\
  00,00

)machine";

}  // namespace velmora::hosted
