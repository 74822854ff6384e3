# Writes OUT, a C++ source that defines each text of LocalXml.h from its file in DIR.
set(texts
  kSystemXml SFNC_GenTLSystem_Reference_Version_1_0_0_Schema_1_1
  kInterfaceXml SFNC_GenTLInterface_Reference_Version_1_0_0_Schema_1_1
  kDeviceXml SFNC_GenTLDevice_Reference_Version_1_0_0_Schema_1_1
  kStreamXml SFNC_GenTLDataStream_Reference_Version_1_0_0_Schema_1_1
)
set(source "#include \"xml/LocalXml.h\"\n\nnamespace GenTL {\n")
while(texts)
  list(POP_FRONT texts name stem)
  file(READ "${DIR}/${stem}.xml" text)
  string(APPEND source "\nstatic constexpr char ${stem}[] = R\"GENAPI(${text})GENAPI\";\n"
                       "const std::string_view ${name}(${stem}, sizeof ${stem} - 1);\n")
endwhile()
file(WRITE "${OUT}" "${source}\n}  // namespace GenTL\n")
