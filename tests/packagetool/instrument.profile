# A small instrument for the package tool's tests: the folders and programs the updater's commands meet,
# laid out as the embedded team's image lays them out (/bin, /lib and /sbin link into /usr).
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
mount / ro
mount /tmp rw
umask 0022
boots-from nand
user root 0
user daemon 1
group root 0
entry d 0755 0 0 0 /
entry l 0777 0 0 0 /bin usr/bin
entry l 0777 0 0 0 /lib usr/lib
entry l 0777 0 0 0 /sbin usr/sbin
entry d 0755 0 0 0 /dev
entry d 0755 0 0 0 /etc
entry f 0644 0 0 120 /etc/instrument.conf
entry l 0777 0 0 0 /etc/os-release ../usr/lib/os-release
entry l 0777 0 0 0 /etc/localtime /usr/share/zoneinfo/UTC
entry d 0755 0 0 0 /home
entry f 0755 0 0 4096 /home/mainApp
entry f 0755 0 0 210 /home/format_sdcard.sh
entry f 0755 0 0 210 /home/format_transfer.sh
entry d 0755 0 0 0 /mnt
entry d 0755 0 0 0 /mnt/update
entry d 0755 0 0 0 /mnt/data
entry d 0755 0 0 0 /opt
entry d 0755 0 0 0 /run
entry d 1777 0 0 0 /tmp
entry d 0755 0 0 0 /usr
entry d 0755 0 0 0 /usr/bin
entry f 0755 0 0 125560 /usr/bin/sh
entry f 0755 0 0 43416 /usr/bin/cp
entry f 0755 0 0 72704 /usr/bin/rm
entry f 0755 0 0 447000 /usr/bin/tar
entry f 0755 0 0 98000 /usr/bin/ubiformat
entry f 0755 0 0 310000 /usr/bin/updater
entry d 0755 0 0 0 /usr/sbin
entry d 0755 0 0 0 /usr/lib
entry f 0755 0 0 180000 /usr/lib/ld-linux-armhf.so.3
entry f 0644 0 0 400 /usr/lib/os-release
entry d 0755 0 0 0 /usr/lib/modules
entry d 0755 0 0 0 /usr/lib/modules/4.19.0-instrument
entry f 0644 0 0 90 /usr/lib/modules/4.19.0-instrument/modules.dep
entry d 0755 0 0 0 /usr/lib/modules/4.19.0-instrument/kernel
entry d 0755 0 0 0 /usr/lib/modules/4.19.0-instrument/kernel/drivers
entry f 0644 0 0 5120 /usr/lib/modules/4.19.0-instrument/kernel/drivers/keypad.ko
entry d 0755 0 0 0 /usr/share
entry d 0755 0 0 0 /usr/share/zoneinfo
entry f 0644 0 0 114 /usr/share/zoneinfo/UTC
entry d 0755 0 0 0 /var
library-path /usr/lib
