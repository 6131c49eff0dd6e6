set(SOURCES
  cls_INet.cpp
  cls_WinSock.cpp
)
set(PUBLIC_HEADERS)
