# Fails the build when a member of the exported interface, or a C function of the headers
# in HEADER_DIR, is missing from the export table of the DLL; C functions must be exported
# under their plain names. Then writes DEF_FILE, the module definition of the C functions
# from which Microsoft's import library is made.
# Run as: cmake -DDLL=... -DOBJDUMP=... -DCXXFILT=... -DHEADER_DIR=... -DDEF_FILE=... -P CheckExports.cmake
execute_process(COMMAND ${OBJDUMP} -p ${DLL} OUTPUT_VARIABLE dump RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "${OBJDUMP} could not read ${DLL}")
endif()

# The names follow the heading of the name table; the address table before it has no names.
string(FIND "${dump}" "[Ordinal/Name Pointer] Table" names_start)
if(names_start LESS 0)
  message(FATAL_ERROR "${DLL} has no named exports")
endif()
string(SUBSTRING "${dump}" ${names_start} -1 dump)
string(REGEX MATCHALL "\\[ *[0-9]+\\] [^\n]+" entries "${dump}")
set(mangled "")
foreach(entry IN LISTS entries)
  string(REGEX REPLACE "^\\[ *[0-9]+\\] " "" name "${entry}")
  string(APPEND mangled "${name}\n")
endforeach()
get_filename_component(dll_name ${DLL} NAME)
set(names_file ${CMAKE_CURRENT_BINARY_DIR}/${dll_name}.exports.txt)
file(WRITE ${names_file} "${mangled}")
# Exported names carry no leading underscore on either target.
execute_process(COMMAND ${CXXFILT} -n INPUT_FILE ${names_file} OUTPUT_VARIABLE exports)

# Member name and how many overloads of it the interface has.
set(kovra_members
  "CKovra::CKovra:1" "CKovra::~CKovra:1" "CKovra::Open:1" "CKovra::Close:1" "CKovra::IsOpen:1"
  "CKovra::IsWritable:1" "CKovra::GetRealFileName:2" "CKovra::GetFileName:1" "CKovra::GetFileType:1"
  "CKovra::BuildFileName:1" "CKovra::GetLastError:1" "CKovra::IsDirectory:1" "CKovra::Read:1"
  "CKovra::Write:1" "CKovra::ReadString:1" "CKovra::WriteString:2" "CKovra::Printf:1" "CKovra::Flush:1"
  "CKovra::Seek:1" "CKovra::GetPosition:1" "CKovra::GetLength:1" "CKovra::SetLength:1" "CKovra::Lock:1"
  "CKovra::UnLock:1" "CKovra::GetModificationTime:1" "CKovra::SetModificationTime:1"
  "CKovra::operator=:1" "CKovra::operator\\+=:1" "CKovra::operator-=:1" "CKovra::GetProfile:6"
  "CKovra::WriteProfile:6" "CKovra::GetProfileSectionA:1" "CKovra::WriteProfileSectionA:1"
  "CKovra::SaveFile:1" "CKovra::Remove:1" "CKovra::Rename:1" "CKovra::RmDir:1" "CKovra::ChDir:1"
  "CKovra::GetDrive:1" "CKovra::ChDrive:1" "CKovra::GetCwd:1" "CKovra::GetShortPathNameA:1"
  "CKovra::GetLongPathNameA:1" "CKovra::CopyFileA:1" "CKovra::AppendFile:1" "CKovra::GetDiskFreeSpaceA:1"
  "CKovra::IsNetDrive:2" "CKovra::Access:1" "CKovra::MkDir:1" "CKovra::AddFileType:1"
  "CKovra::SetDebugLevel:1" "CKovra::SetOption:1" "CKovra::StartSession:1" "CKovra::RemoveSession:1"
  "CKovra::StartThread:1" "CKovra::RemoveThread:1" "CKovra::SetUser:1" "CKovra::SetClient:1"
  "CKovra::SetModulePath:1" "CKovra::IsValidClient:1"
  "CKovraFind::CKovraFind:1" "CKovraFind::~CKovraFind:1" "CKovraFind::FindFile:1"
  "CKovraFind::FindNextFileA:1" "CKovraFind::Close:1" "CKovraFind::GetLength:1" "CKovraFind::GetFileName:1"
  "CKovraFind::GetFilePath:1" "CKovraFind::GetFilePathRelative:1" "CKovraFind::IsDots:1"
  "CKovraFind::IsDirectory:1" "CKovraFind::IsHidden:1")

set(missing "")
foreach(member IN LISTS kovra_members)
  string(REGEX MATCH "^(.*):([0-9]+)$" _ "${member}")
  set(name "${CMAKE_MATCH_1}")
  set(overloads "${CMAKE_MATCH_2}")
  # Constructors and destructors appear in several variants; count distinct parameter lists.
  string(REGEX MATCHALL "(^|\n)${name}\\([^\n]*\\)" found "${exports}")
  list(REMOVE_DUPLICATES found)
  list(LENGTH found count)
  if(count LESS overloads)
    list(APPEND missing "${name} (${count} of ${overloads})")
  endif()
endforeach()

# C functions: declared with KOVRA_CAPI(type) in capi.h, with KOVRA_API in diag.h.
set(c_functions "")
foreach(header capi.h diag.h)
  file(READ ${HEADER_DIR}/${header} declarations)
  string(REGEX MATCHALL "KOVRA_CAPI\\([^)]*\\) +[A-Za-z_][A-Za-z0-9_]*\\(" capi "${declarations}")
  string(REGEX MATCHALL "\nKOVRA_API [^(\n]*[ *][A-Za-z_][A-Za-z0-9_]*\\(" plain "${declarations}")
  foreach(declaration IN LISTS capi plain)
    string(REGEX MATCH "([A-Za-z_][A-Za-z0-9_]*)\\($" _ "${declaration}")
    list(APPEND c_functions ${CMAKE_MATCH_1})
  endforeach()
endforeach()
if(NOT c_functions)
  message(FATAL_ERROR "No C functions found in ${HEADER_DIR}")
endif()
foreach(function IN LISTS c_functions)
  if(NOT "\n${mangled}" MATCHES "\n${function}\n")
    list(APPEND missing "${function} (C, plain name)")
  endif()
endforeach()

if(missing)
  list(JOIN missing "\n  " text)
  message(FATAL_ERROR "${dll_name} does not export:\n  ${text}")
endif()

list(JOIN c_functions "\n  " names)
file(WRITE ${DEF_FILE} "LIBRARY ${dll_name}\nEXPORTS\n  ${names}\n")
