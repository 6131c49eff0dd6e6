set(SOURCES
  CFileInfo.cpp
  cls_Base64.cpp
  cls_DirListing.cpp
  NameSet.cpp)
set(PUBLIC_HEADERS)
set(TOOLBOX_SOURCES cls_NTSecurity.cpp)
set(TOOLBOX_HEADERS cls_NTSecurity.h)
