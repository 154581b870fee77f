# A sketch: set SRC_URI and SRCREV to your copy of the repository. All layers are in meta-openembedded, but for rauc
# (meta-rauc).
SUMMARY = "Engineering service of a car head unit, on stock Linux"
LICENSE = "CLOSED"
SRC_URI = "git://example.com/engineering-service.git;protocol=https;branch=main"
SRCREV = "${AUTOREV}"
S = "${WORKDIR}/git"

inherit cmake pkgconfig systemd useradd

# What the program links, and what is compiled in from headers.
DEPENDS = "glib-2.0 glib-2.0-native alsa-lib systemd zlog fmt tomlplusplus nlohmann-json cli11"
# Of the station tool, which the same build configures; nothing of it is built or installed.
DEPENDS += "pugixml re2 sqlite3 libcsv muparser"
RDEPENDS:${PN} = "dbus"
RRECOMMENDS:${PN} = "polkit bluez5 ofono gpsd networkmanager rauc"

EXTRA_OECMAKE = "-DBUILD_TESTING=OFF -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=0"
OECMAKE_TARGET_COMPILE = "engineering-unit engineering-hmi"

do_install() {
    DESTDIR=${D} cmake --install ${B} --component unit
}

FILES:${PN} += "${nonarch_libdir} ${libexecdir} ${datadir}/dbus-1 ${datadir}/polkit-1 ${datadir}/engineering-unit"
CONFFILES:${PN} = "${sysconfdir}/engineering/unit.toml"
PRIVATE_LIBS:${PN} = "libzlog.so.1"
SYSTEMD_SERVICE:${PN} = "engineering-unit.service engineering-bus.service engineering-hmi-unit.service"
# The image's own recipe enables the service, together with the unit.toml of the board.
SYSTEMD_AUTO_ENABLE = "disable"

USERADD_PACKAGES = "${PN}"
GROUPADD_PARAM:${PN} = "-r input; -r gpio"
USERADD_PARAM:${PN} = "-r -U -s /sbin/nologin -d ${localstatedir}/lib/engineering -G dialout,audio,video,input,gpio engineering"
