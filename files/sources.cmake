set(SOURCES
  CFileInfo.cpp
  cls_Base64.cpp
  cls_DirListing.cpp
  cls_NTSecurity.cpp
)
set(PUBLIC_HEADERS)
