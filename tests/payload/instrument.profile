# The instrument as the payload tests see it: the platform and flash of the default profile, and the few
# entries of its root the checks look at (links to usr/, the loader, the shells, the modules' folder).
format 1
kernel-release 4.19.0-instrument
machine arm
elf-class 32
float-abi hard
loader /lib/ld-linux-armhf.so.3
updater /usr/bin/updater
nand-page 2048
nand-erase-block 131072
partition /dev/mtd0 2097152
partition /dev/mtd1 8388608
partition /dev/mmcblk0 33554432
entry d 0755 0 0 0 /
entry l 0777 0 0 0 /bin usr/bin
entry l 0777 0 0 0 /lib usr/lib
entry l 0777 0 0 0 /sbin usr/sbin
entry d 0755 0 0 0 /etc
entry d 0755 0 0 0 /home
entry f 0755 0 0 14804 /home/mainApp
entry d 0755 0 0 0 /usr
entry d 0755 0 0 0 /usr/bin
entry f 0755 0 0 125560 /usr/bin/dash
entry l 0777 0 0 0 /usr/bin/sh dash
entry f 0755 0 0 38624 /usr/bin/env
entry f 0755 0 0 902132 /usr/bin/updater
entry d 0755 0 0 0 /usr/lib
entry l 0777 0 0 0 /usr/lib/ld-linux-armhf.so.3 arm-linux-gnueabihf/ld-linux-armhf.so.3
entry f 0755 0 0 138000 /usr/lib/ld-linux.so.3
entry d 0755 0 0 0 /usr/lib/arm-linux-gnueabihf
entry f 0755 0 0 166228 /usr/lib/arm-linux-gnueabihf/ld-linux-armhf.so.3
entry f 0755 0 0 948844 /usr/lib/arm-linux-gnueabihf/libc.so.6
entry d 0755 0 0 0 /usr/lib/modules
entry d 0755 0 0 0 /usr/lib/modules/4.19.0-instrument
entry d 0755 0 0 0 /usr/sbin
entry l 0777 0 0 0 /usr/sbin/sh ../bin/dash
