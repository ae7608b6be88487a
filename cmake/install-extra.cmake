# The name dictionaries of the anonymisation functions go to the fixed
# folder the library reads by default.  The destination is absolute: the
# install prefix does not apply (DESTDIR still does).  Install them alone
# with: cmake --install build --component dictionaries
install(FILES
          ${PROJECT_SOURCE_DIR}/data/dict.prenom.masculin.txt
          ${PROJECT_SOURCE_DIR}/data/dict.prenom.feminin.txt
          ${PROJECT_SOURCE_DIR}/data/dict.nom.txt
        DESTINATION /etc/default
        PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
        COMPONENT dictionaries)
