set(SOURCES
  HostLookUp.cpp
  HostNames.cpp)
set(PUBLIC_HEADERS HostLookUp.h)
set(TOOLBOX_SOURCES
  cls_INet.cpp
  cls_WinSock.cpp)
set(TOOLBOX_HEADERS
  cls_INet.h
  cls_WinSock.h)
