set(SOURCES
  cls_Base64.cpp
)
set(PUBLIC_HEADERS)
