@echo off
setlocal EnableExtensions DisableDelayedExpansion
if not exist "%~dp0velmora.exe" goto missing
"%~dp0velmora.exe" stop --window %*
exit /b %errorlevel%
:missing
echo velmora.exe is not in this folder. Extract the whole archive, then open stop.cmd there.
pause
exit /b 27
