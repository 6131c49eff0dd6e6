set(SOURCES
  cls_WinSock.cpp
)
set(PUBLIC_HEADERS)
