# Provisional instrument profile (a few folders only); scripts/capture-profile.sh replaces it.
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
entry d 0755 0 0 0 /etc
entry d 0755 0 0 0 /boot
entry d 0755 0 0 0 /mnt
entry d 0755 0 0 0 /mnt/update
entry d 0700 0 0 0 /root
entry d 0755 0 0 0 /dev
entry d 0755 0 0 0 /media
entry d 0755 0 0 0 /usr
entry d 1777 0 0 0 /tmp
entry d 0755 0 0 0 /var
entry d 0755 0 0 0 /home
entry l 0777 0 0 0 /sbin usr/sbin
entry l 0777 0 0 0 /lib usr/lib
entry d 0755 0 0 0 /opt
entry d 0755 0 0 0 /run
entry d 0755 0 0 0 /srv
entry l 0777 0 0 0 /bin usr/bin
entry d 0755 0 0 0 /etc/rc2.d
entry d 0755 0 0 0 /etc/selinux
entry d 0755 0 0 0 /etc/ld.so.conf.d
entry d 0755 0 0 0 /etc/xdg
entry d 0755 0 0 0 /etc/dpkg
entry d 0755 0 0 0 /etc/ssh
entry f 0644 0 0 1706 /etc/deluser.conf
entry d 0755 0 0 0 /etc/gnucobol
entry f 0644 0 0 685 /etc/e2scrub.conf
entry f 0644 0 0 142 /etc/shells
entry f 0644 0 0 60 /etc/networks
entry f 0644 0 0 767 /etc/netconfig
entry d 0755 0 0 0 /etc/xml
entry d 0755 0 0 0 /etc/dhcp
entry d 0755 0 0 0 /etc/environment.d
entry d 0755 0 0 0 /etc/vim
entry f 0644 0 0 45495 /etc/ld.so.cache
entry d 0755 0 0 0 /etc/.java
entry f 0644 0 0 6 /etc/debian_version
entry d 0755 0 0 0 /etc/perl
entry f 0644 0 0 111 /etc/magic
entry f 0644 0 0 191 /etc/libaudit.conf
entry f 0644 0 0 12813 /etc/services
entry f 0644 0 0 2996 /etc/locale.alias
entry d 0755 0 0 0 /etc/rc0.d
entry f 0644 0 0 598 /etc/group-
entry d 0755 0 0 0 /etc/modules-load.d
entry f 0644 0 0 0 /etc/subuid
entry f 0644 0 0 0 /etc/environment
entry f 0640 0 42 608 /etc/shadow-
entry f 0644 0 0 111 /etc/magic.mime
entry d 0755 0 0 0 /etc/rc1.d
entry f 0644 0 0 911 /etc/rpc
entry d 0755 0 0 0 /etc/postgresql-common
entry d 0755 0 0 0 /etc/systemd
entry f 0644 0 0 769 /etc/profile
entry f 0644 0 0 1260 /etc/ucf.conf
entry f 0644 0 0 606 /etc/group
entry d 0755 0 0 0 /etc/groff
entry d 0755 0 0 0 /etc/python3
entry d 0755 0 0 0 /etc/dconf
entry d 0755 0 0 0 /etc/bash_completion.d
entry f 0644 0 0 286 /etc/motd
entry d 0755 0 0 0 /etc/vulkan
entry d 0755 0 0 0 /etc/cron.d
entry f 0644 0 0 1994 /etc/bash.bashrc
entry d 0755 0 0 0 /etc/dbus-1
entry d 0755 0 0 0 /etc/sgml
entry d 0755 0 0 0 /etc/ldap
entry d 0755 0 0 0 /etc/kernel
entry f 0644 0 0 782 /etc/mke2fs.conf
entry l 0777 0 0 0 /etc/os-release ../usr/lib/os-release
entry d 0755 0 0 0 /etc/init.d
entry d 0755 0 0 0 /etc/ca-certificates
entry d 0755 0 0 0 /etc/profile.d
entry f 0644 0 0 10593 /etc/sensors3.conf
entry f 0644 0 0 34 /etc/ld.so.conf
entry d 0755 0 0 0 /etc/debuginfod
entry d 0755 0 0 0 /etc/binfmt.d
entry d 0755 0 0 0 /etc/rc3.d
entry f 0644 0 0 72 /etc/gitconfig
entry f 0644 0 0 2584 /etc/gai.conf
entry f 0600 0 0 0 /etc/.pwd.lock
entry f 0644 0 0 8 /etc/timezone
entry d 0755 0 0 0 /etc/polkit-1
entry f 0640 0 42 512 /etc/gshadow
entry f 0644 0 0 6105 /etc/ca-certificates.conf
entry d 0755 0 0 0 /etc/apparmor.d
entry f 0644 0 0 349 /etc/image.setuid-baseline
entry f 0644 0 0 0 /etc/subgid
entry f 0644 0 0 8378 /etc/fpc-3.2.2.cfg
entry d 0755 0 0 0 /etc/X11
entry f 0755 0 0 49 /etc/hosts
entry f 0644 0 0 3886 /etc/gprofng.rc
entry f 0644 0 0 694 /etc/fuse.conf
entry l 0777 0 0 0 /etc/rmt /usr/sbin/rmt
entry d 0755 0 0 0 /etc/java-17-openjdk
entry d 0755 0 0 0 /etc/apt
entry f 0644 0 0 51 /etc/pip.conf
entry d 0755 0 0 0 /etc/rc6.d
entry d 0755 0 0 0 /etc/terminfo
entry f 0644 0 0 9 /etc/host.conf
entry f 0640 0 42 504 /etc/gshadow-
entry f 0644 0 0 552 /etc/pam.conf
entry f 0755 0 0 25 /etc/resolv.conf
entry d 0755 0 0 0 /etc/pam.d
entry d 0755 0 0 0 /etc/lighttpd
entry f 0755 0 0 3 /etc/hostname
entry d 0755 0 0 0 /etc/tmpfiles.d
entry f 0644 0 0 681 /etc/xattr.conf
entry d 0755 0 0 0 /etc/skel
entry f 0644 0 0 9431 /etc/locale.gen
entry f 0644 0 0 2355 /etc/sysctl.conf
entry f 0644 0 0 3040 /etc/adduser.conf
entry l 0777 0 0 0 /etc/fpc.cfg /etc/alternatives/fpc.cfg
entry f 0644 0 0 5230 /etc/manpath.config
entry f 0644 0 0 4942 /etc/wgetrc
entry f 0644 0 0 3144 /etc/protocols
entry f 0644 0 0 526 /etc/nsswitch.conf
entry d 0755 0 0 0 /etc/default
entry d 0755 0 0 0 /etc/maven
entry f 0640 0 42 631 /etc/shadow
entry d 0755 0 0 0 /etc/cron.weekly
entry f 0444 0 0 33 /etc/machine-id
entry f 0644 0 0 73816 /etc/mime.types
entry f 0644 0 0 12569 /etc/login.defs
entry d 0755 0 0 0 /etc/fonts
entry l 0777 0 0 0 /etc/localtime /usr/share/zoneinfo/Etc/UTC
entry f 0644 0 0 1875 /etc/inputrc
entry d 0755 0 0 0 /etc/update-motd.d
entry d 0755 0 0 0 /etc/cron.daily
entry d 0755 0 0 0 /etc/rc4.d
entry d 0755 0 0 0 /etc/gss
entry d 0755 0 0 0 /etc/opt
entry d 0755 0 0 0 /etc/glvnd
entry f 0644 0 0 1194 /etc/passwd-
entry f 0644 0 0 27 /etc/issue
entry d 0755 0 0 0 /etc/iproute2
entry f 0644 0 0 20 /etc/issue.net
entry f 0644 0 0 2969 /etc/debconf.conf
entry f 0644 0 0 1853 /etc/ethertypes
entry d 0755 0 0 0 /etc/logcheck
entry d 0755 0 0 0 /etc/rcS.d
entry f 0644 0 0 367 /etc/bindresvport.blacklist
entry f 0644 0 0 833 /etc/appstream.conf
entry d 0755 0 0 0 /etc/PackageKit
entry d 0755 0 0 0 /etc/python3.11
entry d 0755 0 0 0 /etc/ssl
entry l 0777 0 0 0 /etc/mtab /proc/mounts
entry d 0755 0 0 0 /etc/sysctl.d
entry d 0755 0 0 0 /etc/gtk-2.0
entry f 0644 0 0 37 /etc/fstab
entry d 0755 0 0 0 /etc/rc5.d
entry d 0755 0 0 0 /etc/gdb
entry f 0644 0 0 1221 /etc/passwd
entry d 0755 0 0 0 /etc/logrotate.d
entry d 0755 101 104 0 /etc/postgresql
entry d 0755 0 0 0 /etc/alternatives
entry d 0755 0 0 0 /etc/ImageMagick-6
entry d 0755 0 0 0 /etc/security
entry f 0644 0 0 42 /etc/npmrc
entry d 0755 0 0 0 /etc/sensors.d
entry d 0755 0 0 0 /etc/apache2
entry d 0755 1000 1000 0 /home/cloudsdk
entry l 0777 0 0 0 /usr/bin/yaml2obj ../lib/llvm-14/bin/yaml2obj
entry f 0755 0 0 22888 /usr/bin/valgrind.bin
entry f 0755 0 0 523360 /usr/bin/delp-3.2.2
entry f 0755 0 0 98136 /usr/bin/gzip
entry l 0777 0 0 0 /usr/bin/git-upload-pack git
entry f 0755 0 0 1276544 /usr/bin/zstd
entry f 0755 0 0 9047 /usr/bin/lesspipe
entry f 0755 0 0 27120 /usr/bin/file
entry l 0777 0 0 0 /usr/bin/llvm-tblgen ../lib/llvm-14/bin/llvm-tblgen
entry l 0777 0 0 0 /usr/bin/c++ /etc/alternatives/c++
entry l 0777 0 0 0 /usr/bin/wasm-ld-14 ../lib/llvm-14/bin/wasm-ld
entry f 0755 0 0 6865 /usr/bin/bashbug
entry f 0755 0 0 138480 /usr/bin/ptx
entry f 0755 0 0 19184 /usr/bin/xmore
entry f 0755 0 0 52176 /usr/bin/cmp
entry f 0755 0 0 14816 /usr/bin/fc-match
entry f 0755 0 0 1452240 /usr/bin/fpclasschart-3.2.2
entry f 0755 0 0 14744 /usr/bin/xlsatoms
entry f 0755 0 0 23352 /usr/bin/derb
entry l 0777 0 0 0 /usr/bin/bugpoint-14 ../lib/llvm-14/bin/bugpoint
entry l 0777 0 0 0 /usr/bin/lli-child-target-14 ../lib/llvm-14/bin/lli-child-target
entry f 0755 0 0 1202144 /usr/bin/cobc
entry l 0777 0 0 0 /usr/bin/gnatclean-12 x86_64-linux-gnu-gnatclean-12
entry l 0777 0 0 0 /usr/bin/gnatls gnatls-12
entry l 0777 0 0 0 /usr/bin/sancov-14 ../lib/llvm-14/bin/sancov
entry l 0777 0 0 0 /usr/bin/mogrify-im6 /etc/alternatives/mogrify-im6
entry l 0777 0 0 0 /usr/bin/mogrify /etc/alternatives/mogrify
entry l 0777 0 0 0 /usr/bin/clang-offload-bundler-14 ../lib/llvm-14/bin/clang-offload-bundler
entry l 0777 0 0 0 /usr/bin/c-index-test ../lib/llvm-14/bin/c-index-test
entry l 0777 0 0 0 /usr/bin/py3versions ../share/python3/py3versions.py
entry l 0777 0 0 0 /usr/bin/gcov-tool-12 x86_64-linux-gnu-gcov-tool-12
entry f 0755 0 0 7469 /usr/bin/memusage
entry f 0755 0 0 72752 /usr/bin/rm
entry f 0755 0 0 134736 /usr/bin/top
entry l 0777 0 0 0 /usr/bin/identify /etc/alternatives/identify
entry f 0755 0 0 5711 /usr/bin/xmlsec1-config
entry f 0755 0 0 244288 /usr/bin/dbus-daemon
entry l 0777 0 0 0 /usr/bin/sg newgrp
entry f 0755 0 0 98932688 /usr/bin/node
entry f 0755 0 0 27008 /usr/bin/systemd-delta
entry l 0777 0 0 0 /usr/bin/find-all-symbols-14 ../lib/llvm-14/bin/find-all-symbols
entry f 0755 0 0 31040 /usr/bin/delpart
entry l 0777 0 0 0 /usr/bin/lz4cat lz4
entry l 0777 0 0 0 /usr/bin/zstdcat zstd
entry f 0755 0 0 92952 /usr/bin/xkbprint
entry l 0777 0 0 0 /usr/bin/qmltestrunner qtchooser
entry f 0755 0 0 318096 /usr/bin/dpkg
entry l 0777 0 0 0 /usr/bin/gnathtml-12 x86_64-linux-gnu-gnathtml-12
entry f 0755 0 0 273024 /usr/bin/scp
entry l 0777 0 0 0 /usr/bin/pg_isready ../share/postgresql-common/pg_wrapper
entry f 0755 0 0 36232 /usr/bin/man-recode
entry l 0777 0 0 0 /usr/bin/run-clang-tidy run-clang-tidy-14.py
entry l 0777 0 0 0 /usr/bin/gp-display-html x86_64-linux-gnu-gp-display-html
entry l 0777 0 0 0 /usr/bin/tclsh tclsh8.6
entry f 0755 0 0 7810 /usr/bin/py3clean
entry f 0755 0 0 7422 /usr/bin/xzdiff
entry f 0755 0 0 80016 /usr/bin/xman
entry l 0777 0 0 0 /usr/bin/editor /etc/alternatives/editor
entry l 0777 0 0 0 /usr/bin/dnsdomainname hostname
entry l 0777 0 0 0 /usr/bin/g++ g++-12
entry f 0755 0 0 2057824 /usr/bin/Xvfb
entry f 0755 0 0 14544 /usr/bin/montage-im6.q16
entry l 0777 0 0 0 /usr/bin/git-clang-format-14 ../lib/llvm-14/bin/git-clang-format
entry f 0755 0 0 882016 /usr/bin/fprcp-3.2.2
entry f 0755 0 0 43016 /usr/bin/rxstack
entry f 0755 0 0 14528 /usr/bin/tclsh8.6
entry f 0755 0 0 35144 /usr/bin/msgunfmt
entry l 0777 0 0 0 /usr/bin/qtpaths qtchooser
entry l 0777 0 0 0 /usr/bin/llvm-addr2line ../lib/llvm-14/bin/llvm-addr2line
entry l 0777 0 0 0 /usr/bin/llvm-strip ../lib/llvm-14/bin/llvm-strip
entry l 0777 0 0 0 /usr/bin/git-clang-format git-clang-format-14
entry f 0755 0 0 1125408 /usr/bin/ssh
entry f 0755 0 0 39472 /usr/bin/gtk-update-icon-cache
entry l 0777 0 0 0 /usr/bin/javac /etc/alternatives/javac
entry f 0755 0 0 1108440 /usr/bin/gpg
entry f 0755 0 0 52160 /usr/bin/xwininfo
entry f 0755 0 0 3869 /usr/bin/zstdgrep
entry l 0777 0 0 0 /usr/bin/gp-display-text x86_64-linux-gnu-gp-display-text
entry f 0755 0 0 14560 /usr/bin/dbus-uuidgen
entry f 0755 0 0 14848 /usr/bin/xkbbell
entry f 0755 0 0 14560 /usr/bin/dbus-update-activation-environment
entry f 0755 0 0 35136 /usr/bin/namei
entry f 0755 0 0 14544 /usr/bin/conjure-im6.q16
entry f 0755 0 0 454 /usr/bin/c99-gcc
entry f 0755 0 0 2995 /usr/bin/debconf-set-selections
entry f 0755 0 0 140784 /usr/bin/grotty
entry f 0755 0 0 18672 /usr/bin/watchgnupg
entry l 0777 0 0 0 /usr/bin/ppcx64 /etc/alternatives/ppcx64
entry l 0777 0 0 0 /usr/bin/lastb last
entry l 0777 0 0 0 /usr/bin/llvm-libtool-darwin-14 ../lib/llvm-14/bin/llvm-libtool-darwin
entry l 0777 0 0 0 /usr/bin/jshell /etc/alternatives/jshell
entry f 0755 0 0 998976 /usr/bin/h2pas-3.2.2
entry f 0755 0 0 1290 /usr/bin/sensible-browser
entry f 0755 0 0 933 /usr/bin/yq
entry l 0777 0 0 0 /usr/bin/qmlbundle qtchooser
entry f 0755 0 0 435424 /usr/bin/gpg-agent
entry f 0755 0 0 18744 /usr/bin/mesg
entry f 0755 0 0 50224 /usr/bin/xprop
entry f 0755 0 0 24358 /usr/bin/deb-systemd-helper
entry f 0755 0 0 25152 /usr/bin/xbiff
entry f 0755 0 0 19080 /usr/bin/hmac256
entry l 0777 0 0 0 /usr/bin/llvm-nm ../lib/llvm-14/bin/llvm-nm
entry f 0755 0 0 596304 /usr/bin/ppufiles-3.2.2
entry f 0755 0 0 48632 /usr/bin/pkgdata
entry f 0755 0 0 35368 /usr/bin/x86_64-linux-gnu-gcc-ar-12
entry f 0755 0 0 39760 /usr/bin/dirname
entry f 0755 0 0 5407 /usr/bin/ldd
entry f 0755 0 0 892880 /usr/bin/ifpc-3.2.2
entry l 0777 0 0 0 /usr/bin/systemd-umount systemd-mount
entry f 0755 0 0 14568 /usr/bin/dbus-run-session
entry f 0755 0 0 45088 /usr/bin/x86_64-linux-gnu-nm
entry f 0755 0 0 2959 /usr/bin/zipgrep
entry f 0755 0 0 4107 /usr/bin/pod2usage
entry f 0755 0 0 97280 /usr/bin/rpcgen
entry f 0755 0 0 14544 /usr/bin/stream-im6.q16
entry f 0755 0 0 28336 /usr/bin/xlogo
entry f 0755 0 0 3069 /usr/bin/encguess
entry f 0755 0 0 428 /usr/bin/c89-gcc
entry f 0755 0 0 609632 /usr/bin/ppumove-3.2.2
entry l 0777 0 0 0 /usr/bin/llvm-strings-14 ../lib/llvm-14/bin/llvm-strings
entry f 0755 0 0 35368 /usr/bin/x86_64-linux-gnu-gcc-nm-12
entry f 0755 0 0 86176 /usr/bin/zipnote
entry l 0777 0 0 0 /usr/bin/gnatkr-12 x86_64-linux-gnu-gnatkr-12
entry f 0755 0 0 26936 /usr/bin/msgattrib
entry f 0755 0 0 8669 /usr/bin/dpkg-scanpackages
entry l 0777 0 0 0 /usr/bin/hd hexdump
entry f 0755 0 0 211592 /usr/bin/lz4
entry f 0755 0 0 57840 /usr/bin/rendercheck
entry l 0777 0 0 0 /usr/bin/clang ../lib/llvm-14/bin/clang
entry f 0755 0 0 2776 /usr/bin/grog
entry f 0755 0 0 4735 /usr/bin/wfindent
entry f 0755 0 0 918952 /usr/bin/x86_64-linux-gnu-as
entry l 0777 0 0 0 /usr/bin/vacuumlo ../share/postgresql-common/pg_wrapper
entry f 0755 0 0 27352 /usr/bin/watch
entry l 0777 0 0 0 /usr/bin/animate /etc/alternatives/animate
entry f 0755 0 0 3077 /usr/bin/x86_64-linux-gnu-python3.11-config
entry f 0755 0 0 1353368 /usr/bin/systemctl
entry f 0755 0 0 18744 /usr/bin/mountpoint
entry l 0777 0 0 0 /usr/bin/bzless bzmore
entry f 0755 0 0 3646968 /usr/bin/vim.basic
entry l 0777 0 0 0 /usr/bin/llvm-symbolizer ../lib/llvm-14/bin/llvm-symbolizer
entry f 0755 0 0 55616 /usr/bin/column
entry f 0755 0 0 14656 /usr/bin/colcrt
entry l 0777 0 0 0 /usr/bin/strip x86_64-linux-gnu-strip
entry l 0777 0 0 0 /usr/bin/jps /etc/alternatives/jps
entry f 0755 0 0 109616 /usr/bin/touch
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-gcc-ar gcc-ar-12
entry f 0755 0 0 1336592 /usr/bin/x86_64-linux-gnu-ld.bfd
entry l 0777 0 0 0 /usr/bin/rstconv /etc/alternatives/rstconv
entry f 0755 0 0 43856 /usr/bin/basename
entry f 0755 0 0 149944 /usr/bin/tbl
entry l 0777 0 0 0 /usr/bin/llvm-ml-14 ../lib/llvm-14/bin/llvm-ml
entry l 0777 0 0 0 /usr/bin/corepack ../lib/node_modules/corepack/dist/corepack.js
entry f 0755 0 0 63808 /usr/bin/taskset
entry f 0755 0 0 2425 /usr/bin/nss-config
entry l 0777 0 0 0 /usr/bin/grab_vcsa /etc/alternatives/grab_vcsa
entry f 0755 0 0 27972 /usr/bin/apt-key
entry l 0777 0 0 0 /usr/bin/lzcat /etc/alternatives/lzcat
entry f 0755 0 0 22840 /usr/bin/msgconv
entry f 0755 0 0 474112 /usr/bin/gpgv
entry f 0755 0 0 96576 /usr/bin/lslogins
entry l 0777 0 0 0 /usr/bin/fppkg /etc/alternatives/fppkg
entry l 0777 0 0 0 /usr/bin/llvm-cfi-verify-14 ../lib/llvm-14/bin/llvm-cfi-verify
entry l 0777 0 0 0 /usr/bin/gnatchop-12 x86_64-linux-gnu-gnatchop-12
entry f 0755 0 0 109432 /usr/bin/dirmngr-client
entry f 0755 0 0 151344 /usr/bin/vdir
entry f 0755 0 0 60008 /usr/bin/systemd-cryptenroll
entry l 0777 0 0 0 /usr/bin/composite-im6 /etc/alternatives/composite-im6
entry f 0755 0 0 946 /usr/bin/which.debianutils
entry l 0777 0 0 0 /usr/bin/pg_recvlogical ../share/postgresql-common/pg_wrapper
entry f 0755 0 0 10697872 /usr/bin/ctest
entry f 0755 0 0 14576 /usr/bin/compare-im6.q16
entry f 0755 0 0 11541 /usr/bin/debconf-apt-progress
entry f 0755 0 0 47416 /usr/bin/scriptreplay
entry l 0777 0 0 0 /usr/bin/strings x86_64-linux-gnu-strings
entry f 0755 0 0 29227 /usr/bin/h2ph
entry f 0755 0 0 1435824 /usr/bin/makeskel-3.2.2
entry f 0755 0 0 3566 /usr/bin/ptar
entry l 0777 0 0 0 /usr/bin/c-index-test-14 ../lib/llvm-14/bin/c-index-test
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-gnathtml x86_64-linux-gnu-gnathtml-12
entry f 0755 0 0 769624 /usr/bin/x86_64-linux-gnu-gnat-12
entry f 0755 0 0 64648 /usr/bin/iconv
entry f 0755 0 0 48080 /usr/bin/uniq
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-pkg-config pkgconf
entry l 0777 0 0 0 /usr/bin/vim /etc/alternatives/vim
entry f 0755 0 0 23232 /usr/bin/pldd
entry f 0755 0 0 14544 /usr/bin/wish8.6
entry l 0777 0 0 0 /usr/bin/lz4c lz4
entry f 0755 0 0 151152 /usr/bin/cp
entry l 0777 0 0 0 /usr/bin/pg_archivecleanup ../share/postgresql-common/pg_wrapper
entry l 0777 0 0 0 /usr/bin/pg_restore ../share/postgresql-common/pg_wrapper
entry f 0755 0 0 2346 /usr/bin/uncompress
entry l 0777 0 0 0 /usr/bin/FileCheck-14 ../lib/llvm-14/bin/FileCheck
entry f 0755 0 0 39824 /usr/bin/users
entry f 0755 0 0 23176 /usr/bin/xcursorgen
entry f 0755 0 0 30 /usr/bin/rgrep
entry f 0755 0 0 68496 /usr/bin/[
entry l 0777 0 0 0 /usr/bin/clang-query ../lib/llvm-14/bin/clang-query
entry l 0777 0 0 0 /usr/bin/llvm-gsymutil-14 ../lib/llvm-14/bin/llvm-gsymutil
entry l 0777 0 0 0 /usr/bin/unitdiff /etc/alternatives/unitdiff
entry l 0777 0 0 0 /usr/bin/lupdate qtchooser
entry f 0755 0 0 41664 /usr/bin/ucf
entry f 0755 0 0 42268 /usr/bin/gettextize
entry f 0755 0 0 55744 /usr/bin/ed
entry l 0777 0 0 0 /usr/bin/fpcmkcfg /etc/alternatives/fpcmkcfg
entry l 0777 0 0 0 /usr/bin/clang-extdef-mapping-14 ../lib/llvm-14/bin/clang-extdef-mapping
entry l 0777 0 0 0 /usr/bin/npx ../lib/node_modules/npm/bin/npx-cli.js
entry f 0755 0 0 4373 /usr/bin/instmodsh
entry f 0755 0 0 8483 /usr/bin/ncursesw6-config
entry l 0777 0 0 0 /usr/bin/clang-apply-replacements-14 ../lib/llvm-14/bin/clang-apply-replacements
entry f 0755 0 0 939 /usr/bin/tomlq
entry f 0755 0 0 18816 /usr/bin/systemd-cat
entry f 0755 0 0 3804432 /usr/bin/perl
entry l 0777 0 0 0 /usr/bin/llvm-dis-14 ../lib/llvm-14/bin/llvm-dis
entry f 0755 0 0 1678 /usr/bin/zcmp
entry f 0755 0 0 9245840 /usr/bin/cmake
entry l 0777 0 0 0 /usr/bin/gold x86_64-linux-gnu-gold
entry f 0755 0 0 23072 /usr/bin/faillog
entry f 0755 0 0 1013984 /usr/bin/unihelper-3.2.2
entry f 0755 0 0 18928 /usr/bin/systemd-machine-id-setup
entry l 0777 0 0 0 /usr/bin/yaml2obj-14 ../lib/llvm-14/bin/yaml2obj
entry f 0755 0 0 41 /usr/bin/egrep
entry l 0777 0 0 0 /usr/bin/clang-check ../lib/llvm-14/bin/clang-check
entry f 0755 0 0 9444 /usr/bin/dh_installxmlcatalogs
entry f 0755 0 0 570352 /usr/bin/pyacc-3.2.2
entry f 0755 0 0 110056 /usr/bin/lexgrog
entry l 0777 0 0 0 /usr/bin/snice skill
entry f 0755 0 0 43888 /usr/bin/arch
entry f 0755 0 0 52112 /usr/bin/readlink
entry f 0755 0 0 146360 /usr/bin/ps
entry l 0777 0 0 0 /usr/bin/md5sum.textutils md5sum
entry l 0777 0 0 0 /usr/bin/identify-im6 /etc/alternatives/identify-im6
entry l 0777 0 0 0 /usr/bin/llvm-mt-14 ../lib/llvm-14/bin/llvm-mt
entry l 0777 0 0 0 /usr/bin/javadoc /etc/alternatives/javadoc
entry l 0777 0 0 0 /usr/bin/llvm-mt ../lib/llvm-14/bin/llvm-mt
entry f 0755 0 0 691 /usr/bin/x86_64-linux-gnu-qmake
entry l 0777 0 0 0 /usr/bin/gcc gcc-12
entry l 0777 0 0 0 /usr/bin/gcov-12 x86_64-linux-gnu-gcov-12
entry l 0777 0 0 0 /usr/bin/droplang ../share/postgresql-common/pg_wrapper
entry l 0777 0 0 0 /usr/bin/python3-config python3.11-config
entry f 0755 0 0 299808 /usr/bin/xgettext
entry f 0755 0 0 64656 /usr/bin/shred
entry f 0755 0 0 198720 /usr/bin/mkarmins-3.2.2
entry f 0755 0 0 43512 /usr/bin/systemd-sysext
entry l 0777 0 0 0 /usr/bin/java /etc/alternatives/java
entry f 0755 0 0 35560 /usr/bin/xwd
entry l 0777 0 0 0 /usr/bin/linux64 setarch
entry l 0777 0 0 0 /usr/bin/animate-im6 /etc/alternatives/animate-im6
entry l 0777 0 0 0 /usr/bin/jdeps /etc/alternatives/jdeps
entry l 0777 0 0 0 /usr/bin/llc ../lib/llvm-14/bin/llc
entry f 0755 0 0 24327 /usr/bin/ms_print
entry f 0755 0 0 155304 /usr/bin/netstat
entry f 0755 0 0 14544 /usr/bin/import-im6.q16
entry l 0777 0 0 0 /usr/bin/ld.lld-14 ../lib/llvm-14/bin/ld.lld
entry l 0777 0 0 0 /usr/bin/clang-nvlink-wrapper-14 ../lib/llvm-14/bin/clang-nvlink-wrapper
entry f 0755 0 0 14648 /usr/bin/recode-sr-latin
entry f 0755 0 0 76352 /usr/bin/gpgsplit
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-gold x86_64-linux-gnu-ld.gold
entry f 0755 0 0 52176 /usr/bin/md5sum
entry f 0755 0 0 2034104 /usr/bin/strace
entry f 0755 0 0 159432 /usr/bin/x86_64-linux-gnu-strip
entry f 0755 0 0 151064 /usr/bin/gpgtar
entry f 4755 0 0 88496 /usr/bin/gpasswd
entry f 0755 0 0 32512 /usr/bin/lastlog
entry l 0777 0 0 0 /usr/bin/llvm-cov-14 ../lib/llvm-14/bin/llvm-cov
entry f 0755 0 0 4905 /usr/bin/make-first-existing-target
entry f 0755 0 0 31104 /usr/bin/hostnamectl
entry l 0777 0 0 0 /usr/bin/wasm-ld wasm-ld-14
entry l 0777 0 0 0 /usr/bin/import-im6 /etc/alternatives/import-im6
entry l 0777 0 0 0 /usr/bin/obj2yaml-14 ../lib/llvm-14/bin/obj2yaml
entry l 0777 0 0 0 /usr/bin/ncursesw5-config ncursesw6-config
entry f 0755 0 0 51640 /usr/bin/soelim
entry f 0755 0 0 60984 /usr/bin/split
entry l 0777 0 0 0 /usr/bin/verify-uselistorder-14 ../lib/llvm-14/bin/verify-uselistorder
entry f 0755 0 0 531984 /usr/bin/tar
entry f 0755 0 0 7941 /usr/bin/streamzip
entry f 0755 0 0 31032 /usr/bin/msgfilter
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-gcov gcov-12
entry f 0755 0 0 84520 /usr/bin/unshare
entry l 0777 0 0 0 /usr/bin/docker-credential-gcloud ../lib/google-cloud-sdk/bin/docker-credential-gcloud
entry f 0755 0 0 67904 /usr/bin/chrt
entry l 0777 0 0 0 /usr/bin/qmlmin qtchooser
entry l 0777 0 0 0 /usr/bin/llvm-bitcode-strip-14 ../lib/llvm-14/bin/llvm-bitcode-strip
entry f 0755 0 0 35312 /usr/bin/lsirq
entry l 0777 0 0 0 /usr/bin/fpcmake /etc/alternatives/fpcmake
entry l 0777 0 0 0 /usr/bin/llvm-mc ../lib/llvm-14/bin/llvm-mc
entry l 0777 0 0 0 /usr/bin/llvm-lto ../lib/llvm-14/bin/llvm-lto
entry l 0777 0 0 0 /usr/bin/qvkgen qtchooser
entry l 0777 0 0 0 /usr/bin/qhelpgenerator qtchooser
entry f 0755 0 0 661952 /usr/bin/ssh-keygen
entry f 0755 0 0 109616 /usr/bin/bitmap
entry f 0755 0 0 14744 /usr/bin/fc-list
entry l 0777 0 0 0 /usr/bin/python3.11-config x86_64-linux-gnu-python3.11-config
entry f 0755 0 0 48016 /usr/bin/base64
entry f 0755 0 0 64464 /usr/bin/sha512sum
entry l 0777 0 0 0 /usr/bin/rcc qtchooser
entry f 0755 0 0 4893 /usr/bin/bzexe
entry f 0755 0 0 2865208 /usr/bin/pas2js-3.2.2
entry f 0755 0 0 773968 /usr/bin/troff
entry f 0755 0 0 23992 /usr/bin/xkbwatch
entry l 0777 0 0 0 /usr/bin/jfr /etc/alternatives/jfr
entry f 0755 0 0 35410 /usr/bin/pg_createcluster
entry f 0755 0 0 22840 /usr/bin/msgen
entry f 0755 0 0 31128 /usr/bin/valgrind-di-server
entry f 0755 0 0 35136 /usr/bin/ipcrm
entry l 0777 0 0 0 /usr/bin/apt-add-repository add-apt-repository
entry f 0755 0 0 35616 /usr/bin/manpath
entry l 0777 0 0 0 /usr/bin/xzcmp xzdiff
entry f 0755 0 0 15024 /usr/bin/gencfu
entry f 0755 0 0 637408 /usr/bin/ssh-keyscan
entry l 0777 0 0 0 /usr/bin/hwasan_symbolize-14 ../lib/llvm-14/lib/clang/14.0.6/bin/hwasan_symbolize
entry l 0777 0 0 0 /usr/bin/pg_dump ../share/postgresql-common/pg_wrapper
entry f 0755 0 0 195168 /usr/bin/h2paspp-3.2.2
entry f 0755 0 0 9544272 /usr/bin/cpack
entry l 0777 0 0 0 /usr/bin/chmcmd /etc/alternatives/chmcmd
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-gnatkr x86_64-linux-gnu-gnatkr-12
entry f 0755 0 0 14672 /usr/bin/valgrind-listener
entry l 0777 0 0 0 /usr/bin/scan-build scan-build-14
entry f 0755 0 0 170512 /usr/bin/dpkg-deb
entry f 0755 0 0 8360 /usr/bin/piconv
entry f 0755 0 0 592170 /usr/bin/x86_64-linux-gnu-gp-display-html
entry f 0755 0 0 3658 /usr/bin/podchecker
entry l 0777 0 0 0 /usr/bin/llvm-split-14 ../lib/llvm-14/bin/llvm-split
entry l 0777 0 0 0 /usr/bin/llvm-windres-14 ../lib/llvm-14/bin/llvm-windres
entry f 0755 0 0 36640 /usr/bin/pstree
entry f 0755 0 0 121904 /usr/bin/date
entry f 0755 0 0 221 /usr/bin/pip3
entry f 0755 0 0 6447 /usr/bin/gzexe
entry l 0777 0 0 0 /usr/bin/createuser ../share/postgresql-common/pg_wrapper
entry f 0755 0 0 33594 /usr/bin/cg_annotate
entry f 0755 0 0 89 /usr/bin/red
entry f 0755 0 0 14584 /usr/bin/gdk-pixbuf-pixdata
entry l 0777 0 0 0 /usr/bin/ypdomainname hostname
entry f 0755 0 0 1821 /usr/bin/strace-log-merge
entry l 0777 0 0 0 /usr/bin/llvm-xray-14 ../lib/llvm-14/bin/llvm-xray
entry l 0777 0 0 0 /usr/bin/anthoscli ../lib/google-cloud-sdk/bin/anthoscli
entry l 0777 0 0 0 /usr/bin/jstat /etc/alternatives/jstat
entry f 0755 0 0 60400 /usr/bin/shuf
entry f 0755 0 0 68752 /usr/bin/diff3
entry f 0755 0 0 60336 /usr/bin/seq
entry l 0777 0 0 0 /usr/bin/nm x86_64-linux-gnu-nm
entry f 0755 0 0 22904 /usr/bin/systemd-id128
entry f 0755 0 0 32720 /usr/bin/killall
entry f 0755 0 0 868144 /usr/bin/fpcsubst-3.2.2
entry l 0777 0 0 0 /usr/bin/pg_dumpall ../share/postgresql-common/pg_wrapper
entry f 0755 0 0 3085272 /usr/bin/compileserver-3.2.2
entry f 0755 0 0 4137 /usr/bin/pod2html
entry l 0777 0 0 0 /usr/bin/llvm-pdbutil-14 ../lib/llvm-14/bin/llvm-pdbutil
entry l 0777 0 0 0 /usr/bin/rbash bash
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-gcc-ranlib gcc-ranlib-12
entry l 0777 0 0 0 /usr/bin/scan-build-py-14 ../lib/llvm-14/bin/scan-build-py
entry f 0755 0 0 35136 /usr/bin/envsubst
entry l 0777 0 0 0 /usr/bin/linguist qtchooser
entry l 0777 0 0 0 /usr/bin/awk /etc/alternatives/awk
entry f 0755 0 0 84680 /usr/bin/xz
entry l 0777 0 0 0 /usr/bin/qdbus qtchooser
entry f 0755 0 0 179248 /usr/bin/zipinfo
entry f 0755 0 0 26944 /usr/bin/gsettings
entry l 0777 0 0 0 /usr/bin/llvm-rtdyld ../lib/llvm-14/bin/llvm-rtdyld
entry l 0777 0 0 0 /usr/bin/fpclasschart /etc/alternatives/fpclasschart
entry f 0755 0 0 60368 /usr/bin/sha224sum
entry l 0777 0 0 0 /usr/bin/clang-refactor-14 ../lib/llvm-14/bin/clang-refactor
entry l 0777 0 0 0 /usr/bin/gmake make
entry l 0777 0 0 0 /usr/bin/gcov-dump-12 x86_64-linux-gnu-gcov-dump-12
entry f 0755 0 0 27136 /usr/bin/getconf
entry f 0755 0 0 128960 /usr/bin/fd2pascal-3.2.2
entry f 0755 0 0 39224 /usr/bin/bzcat
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-g++ g++-12
entry l 0777 0 0 0 /usr/bin/jcmd /etc/alternatives/jcmd
entry l 0777 0 0 0 /usr/bin/jhsdb /etc/alternatives/jhsdb
entry f 0755 0 0 43952 /usr/bin/expand
entry l 0777 0 0 0 /usr/bin/llvm-rc ../lib/llvm-14/bin/llvm-rc
entry l 0777 0 0 0 /usr/bin/convert-im6 /etc/alternatives/convert-im6
entry f 0755 0 0 5334 /usr/bin/pg_lsclusters
entry l 0777 0 0 0 /usr/bin/h2pas /etc/alternatives/h2pas
entry f 0755 0 0 59720 /usr/bin/hexdump
entry l 0777 0 0 0 /usr/bin/llvm-extract ../lib/llvm-14/bin/llvm-extract
entry f 0755 0 0 47424 /usr/bin/setterm
entry f 0755 0 0 263480 /usr/bin/x86_64-linux-gnu-gp-display-text
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-gcov-dump gcov-dump-12
entry l 0777 0 0 0 /usr/bin/i386 setarch
entry l 0777 0 0 0 /usr/bin/systemd /lib/systemd/systemd
entry f 0755 0 0 52400 /usr/bin/x86_64-linux-gnu-ar
entry l 0777 0 0 0 /usr/bin/clang-tidy ../lib/llvm-14/bin/clang-tidy
entry l 0777 0 0 0 /usr/bin/rmiregistry /etc/alternatives/rmiregistry
entry f 0755 0 0 27432 /usr/bin/gendict
entry l 0777 0 0 0 /usr/bin/qmake qtchooser
entry f 0755 0 0 26896 /usr/bin/tput
entry f 0755 0 0 92512 /usr/bin/tic
entry l 0777 0 0 0 /usr/bin/dsymutil ../lib/llvm-14/bin/dsymutil
entry l 0777 0 0 0 /usr/bin/llvm-lto-14 ../lib/llvm-14/bin/llvm-lto
entry f 0755 0 0 5167 /usr/bin/xsubpp
entry f 0755 0 0 602200 /usr/bin/x86_64-linux-gnu-gcov-tool-12
entry f 0755 0 0 113224 /usr/bin/systemd-tmpfiles
entry f 0755 0 0 13601 /usr/bin/gpgrt-config
entry f 0755 0 0 2154 /usr/bin/vimtutor
entry l 0777 0 0 0 /usr/bin/gtbl tbl
entry l 0777 0 0 0 /usr/bin/llvm-cxxfilt-14 ../lib/llvm-14/bin/llvm-cxxfilt
entry f 0755 0 0 22840 /usr/bin/w
entry f 0755 0 0 26936 /usr/bin/msgcmp
entry l 0777 0 0 0 /usr/bin/lrelease qtchooser
entry f 0755 0 0 2206 /usr/bin/zless
entry f 0755 0 0 88456 /usr/bin/apt-cache
entry f 0755 0 0 10906 /usr/bin/dpkg-gensymbols
entry l 0777 0 0 0 /usr/bin/readelf x86_64-linux-gnu-readelf
entry l 0777 0 0 0 /usr/bin/reindexdb ../share/postgresql-common/pg_wrapper
entry l 0777 0 0 0 /usr/bin/convert /etc/alternatives/convert
entry l 0777 0 0 0 /usr/bin/qmlplugindump qtchooser
entry f 0755 0 0 512736 /usr/bin/relpath-3.2.2
entry f 0755 0 0 222144 /usr/bin/xkbcomp
entry f 2755 0 42 31184 /usr/bin/expiry
entry f 0755 0 0 22920 /usr/bin/apt-cdrom
entry l 0777 0 0 0 /usr/bin/llvm-stress-14 ../lib/llvm-14/bin/llvm-stress
entry f 0755 0 0 35128 /usr/bin/gpgparsemail
entry l 0777 0 0 0 /usr/bin/ld.lld ld.lld-14
entry f 0755 0 0 31792 /usr/bin/setxkbmap
entry f 0755 0 0 49104 /usr/bin/xcalc
entry f 0755 0 0 85008 /usr/bin/stty
entry f 0755 0 0 35368 /usr/bin/x86_64-linux-gnu-gcc-ranlib-12
entry l 0777 0 0 0 /usr/bin/clang-format-14 ../lib/llvm-14/bin/clang-format
entry l 0777 0 0 0 /usr/bin/llvm-config-14 ../lib/llvm-14/bin/llvm-config
entry f 0755 0 0 1282200 /usr/bin/x86_64-linux-gnu-fpcmkcfg-3.2.2
entry l 0777 0 0 0 /usr/bin/clang-14 ../lib/llvm-14/bin/clang
entry f 0755 0 0 128464 /usr/bin/groff
entry f 0755 0 0 3057 /usr/bin/cob-config
entry l 0777 0 0 0 /usr/bin/qdbusviewer qtchooser
entry f 0755 0 0 608 /usr/bin/debconf-communicate
entry l 0777 0 0 0 /usr/bin/gnat gnat-12
entry f 0755 0 0 190320 /usr/bin/grops
entry f 0755 0 0 80192 /usr/bin/setpriv
entry l 0777 0 0 0 /usr/bin/python3 python3.11
entry l 0777 0 0 0 /usr/bin/clang++ ../lib/llvm-14/bin/clang++
entry f 0755 0 0 22840 /usr/bin/msgcomm
entry f 0755 0 0 35217 /usr/bin/cppcheck-htmlreport
entry l 0777 0 0 0 /usr/bin/llvm-opt-report ../lib/llvm-14/bin/llvm-opt-report
entry f 0755 0 0 1305592 /usr/bin/x86_64-linux-gnu-gfortran-12
entry f 0755 0 0 122032 /usr/bin/csplit
entry f 4755 0 0 35128 /usr/bin/fusermount3
entry f 0755 0 0 22928 /usr/bin/systemd-inhibit
entry f 0755 0 0 3516 /usr/bin/gpg-zip
entry l 0777 0 0 0 /usr/bin/llvm-lib ../lib/llvm-14/bin/llvm-lib
entry f 0755 0 0 30968 /usr/bin/tset
entry f 0755 0 0 40784 /usr/bin/fuser
entry f 0755 0 0 691016 /usr/bin/ip
entry f 0755 0 0 3293 /usr/bin/nroff
entry f 0755 0 0 142384 /usr/bin/cksum
entry l 0777 0 0 0 /usr/bin/ld x86_64-linux-gnu-ld
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-gnat x86_64-linux-gnu-gnat-12
entry f 0755 0 0 129344 /usr/bin/lscpu
entry f 0755 0 0 118456 /usr/bin/sort
entry f 0755 0 0 1158640 /usr/bin/fpcmake-3.2.2
entry f 0755 0 0 64464 /usr/bin/sha384sum
entry f 0755 0 0 8480 /usr/bin/ncurses6-config
entry l 0777 0 0 0 /usr/bin/gcc-ranlib-12 x86_64-linux-gnu-gcc-ranlib-12
entry f 0755 0 0 166680 /usr/bin/kbxutil
entry l 0777 0 0 0 /usr/bin/llvm-cxxdump ../lib/llvm-14/bin/llvm-cxxdump
entry f 0755 0 0 1976 /usr/bin/pcre2-config
entry f 0755 0 0 35136 /usr/bin/gettext
entry l 0777 0 0 0 /usr/bin/run-clang-tidy-14.py ../lib/llvm-14/bin/run-clang-tidy
entry f 0755 0 0 600200 /usr/bin/dirmngr
entry l 0777 0 0 0 /usr/bin/clang-format clang-format-14
entry f 0755 0 0 27456 /usr/bin/sprof
entry f 0755 0 0 11111 /usr/bin/ucfr
entry l 0777 0 0 0 /usr/bin/pg_receivewal ../share/postgresql-common/pg_wrapper
entry l 0777 0 0 0 /usr/bin/llvm-cxxdump-14 ../lib/llvm-14/bin/llvm-cxxdump
entry l 0777 0 0 0 /usr/bin/qdbusxml2cpp qtchooser
entry f 0755 0 0 9200 /usr/bin/dpkg-scansources
entry f 0755 0 0 35160 /usr/bin/pmap
entry f 0755 0 0 14648 /usr/bin/rev
entry f 0755 0 0 27392 /usr/bin/gencat
entry f 0755 0 0 2199656 /usr/bin/scalar
entry l 0777 0 0 0 /usr/bin/gcov-tool gcov-tool-12
entry f 0755 0 0 151344 /usr/bin/dir
entry f 0755 0 0 22768 /usr/bin/toe
entry f 0755 0 0 9095 /usr/bin/dpkg-mergechangelogs
entry l 0777 0 0 0 /usr/bin/llvm-stress ../lib/llvm-14/bin/llvm-stress
entry l 0777 0 0 0 /usr/bin/psql ../share/postgresql-common/pg_wrapper
entry f 0755 0 0 4633 /usr/bin/libgcrypt-config
entry l 0777 0 0 0 /usr/bin/display /etc/alternatives/display
entry f 0755 0 0 3472 /usr/bin/activate-global-python-argcomplete
entry f 0755 0 0 14538 /usr/bin/dpkg-gencontrol
entry f 0755 0 0 14520 /usr/bin/tempfile
entry f 0755 0 0 35216 /usr/bin/flock
entry l 0777 0 0 0 /usr/bin/c99 /etc/alternatives/c99
entry f 0755 0 0 707496 /usr/bin/xedit
entry l 0777 0 0 0 /usr/bin/geqn eqn
entry f 0755 0 0 35552 /usr/bin/vmstat
entry l 0777 0 0 0 /usr/bin/lessfile lesspipe
entry l 0777 0 0 0 /usr/bin/llvm-cvtres ../lib/llvm-14/bin/llvm-cvtres
entry f 0755 0 0 90304 /usr/bin/zipsplit
entry l 0777 0 0 0 /usr/bin/vi /etc/alternatives/vi
entry f 0755 0 0 647 /usr/bin/debconf-escape
entry f 0755 0 0 81008 /usr/bin/pr
entry f 0755 0 0 52400 /usr/bin/x86_64-linux-gnu-ranlib
entry l 0777 0 0 0 /usr/bin/lld-link-14 ../lib/llvm-14/bin/lld-link
entry f 0755 0 0 1773304 /usr/bin/x86_64-linux-gnu-gnatprep-12
entry f 0755 0 0 12676 /usr/bin/ssh-copy-id
entry l 0777 0 0 0 /usr/bin/qcollectiongenerator qtchooser
entry f 0755 0 0 31416 /usr/bin/xwud
entry l 0777 0 0 0 /usr/bin/montage-im6 /etc/alternatives/montage-im6
entry f 0755 0 0 125640 /usr/bin/dash
entry f 0755 0 0 84848 /usr/bin/unzipsfx
entry l 0777 0 0 0 /usr/bin/clang-cpp-14 ../lib/llvm-14/bin/clang-cpp
entry l 0777 0 0 0 /usr/bin/llvm-cxxmap-14 ../lib/llvm-14/bin/llvm-cxxmap
entry f 0755 0 0 85200 /usr/bin/factor
entry l 0777 0 0 0 /usr/bin/llvm-as-14 ../lib/llvm-14/bin/llvm-as
entry f 0755 0 0 23232 /usr/bin/memusagestat
entry l 0777 0 0 0 /usr/bin/gfortran-12 x86_64-linux-gnu-gfortran-12
entry f 0755 0 0 23336 /usr/bin/pkmon
entry f 0755 0 0 35616 /usr/bin/faked-tcp
entry l 0777 0 0 0 /usr/bin/uic qtchooser
entry f 0755 0 0 84288 /usr/bin/lsns
entry l 0777 0 0 0 /usr/bin/llvm-diff ../lib/llvm-14/bin/llvm-diff
entry l 0777 0 0 0 /usr/bin/llvm-as ../lib/llvm-14/bin/llvm-as
entry f 0755 0 0 1827 /usr/bin/debconf-show
entry f 0755 0 0 68248 /usr/bin/msginit
entry f 0755 0 0 33409 /usr/bin/dpkg-buildpackage
entry f 0755 0 0 3138240 /usr/bin/x86_64-linux-gnu-ld.gold
entry l 0777 0 0 0 /usr/bin/vacuumdb ../share/postgresql-common/pg_wrapper
entry f 0755 0 0 121152 /usr/bin/partx
entry l 0777 0 0 0 /usr/bin/scan-build-14 ../share/clang/scan-build-14/bin/scan-build
entry f 0755 0 0 31504 /usr/bin/whereis
entry f 0755 0 0 35136 /usr/bin/fallocate
entry l 0777 0 0 0 /usr/bin/relpath /etc/alternatives/relpath
entry f 0755 0 0 162384 /usr/bin/dpkg-query
entry l 0777 0 0 0 /usr/bin/yaml-bench-14 ../lib/llvm-14/bin/yaml-bench
entry f 0755 0 0 35248 /usr/bin/pgrep
entry l 0777 0 0 0 /usr/bin/llvm-diff-14 ../lib/llvm-14/bin/llvm-diff
entry l 0777 0 0 0 /usr/bin/clang-tidy-diff clang-tidy-diff-14.py
entry l 0777 0 0 0 /usr/bin/clangd-14 ../lib/llvm-14/bin/clangd
entry f 0755 0 0 10867 /usr/bin/perlivp
entry l 0777 0 0 0 /usr/bin/pinentry /etc/alternatives/pinentry
entry f 0755 0 0 6241 /usr/bin/deb-systemd-invoke
entry l 0777 0 0 0 /usr/bin/llvm-mca-14 ../lib/llvm-14/bin/llvm-mca
entry f 0755 0 0 1167464 /usr/bin/cscope
entry f 0755 0 0 27560 /usr/bin/run-parts
entry f 0755 0 0 52144 /usr/bin/dircolors
entry l 0777 0 0 0 /usr/bin/jlink /etc/alternatives/jlink
entry f 0755 0 0 48016 /usr/bin/base32
entry l 0777 0 0 0 /usr/bin/clang-tidy-diff-14.py ../lib/llvm-14/share/clang/clang-tidy-diff.py
entry f 0755 0 0 19367 /usr/bin/ucfq
entry l 0777 0 0 0 /usr/bin/clang-reorder-fields-14 ../lib/llvm-14/bin/clang-reorder-fields
entry l 0777 0 0 0 /usr/bin/pp-trace-14 ../lib/llvm-14/bin/pp-trace
entry f 0755 0 0 14648 /usr/bin/pwdx
entry l 0777 0 0 0 /usr/bin/pygettext3 pygettext3.11
entry f 0755 0 0 13659 /usr/bin/prove
entry l 0777 0 0 0 /usr/bin/pager /etc/alternatives/pager
entry f 0755 0 0 43952 /usr/bin/unexpand
entry l 0777 0 0 0 /usr/bin/unxz xz
entry f 0755 0 0 179824 /usr/bin/lsof
entry f 0755 0 0 14584 /usr/bin/chattr
entry f 0755 0 0 35664 /usr/bin/false
entry l 0777 0 0 0 /usr/bin/clang-rename-14 ../lib/llvm-14/bin/clang-rename
entry f 0755 0 0 60304 /usr/bin/test
entry l 0777 0 0 0 /usr/bin/gsutil ../lib/google-cloud-sdk/bin/gsutil
entry f 0755 0 0 221 /usr/bin/pip3.11
entry f 0755 0 0 39760 /usr/bin/yes
entry l 0777 0 0 0 /usr/bin/pg_receivexlog ../share/postgresql-common/pg_wrapper
entry f 0755 0 0 12607 /usr/bin/callgrind_control
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-python3-config x86_64-linux-gnu-python3.11-config
entry l 0777 0 0 0 /usr/bin/llvm-tblgen-14 ../lib/llvm-14/bin/llvm-tblgen
entry l 0777 0 0 0 /usr/bin/objcopy x86_64-linux-gnu-objcopy
entry f 0755 0 0 958848 /usr/bin/bin2obj-3.2.2
entry l 0777 0 0 0 /usr/bin/gfortran gfortran-12
entry f 0755 0 0 48080 /usr/bin/head
entry f 0755 0 0 14584 /usr/bin/clear
entry l 0777 0 0 0 /usr/bin/llvm-cvtres-14 ../lib/llvm-14/bin/llvm-cvtres
entry l 0777 0 0 0 /usr/bin/llvm-rtdyld-14 ../lib/llvm-14/bin/llvm-rtdyld
entry f 0755 0 0 126 /usr/bin/gdbtui
entry f 0755 0 0 932120 /usr/bin/gpgcompose
entry l 0777 0 0 0 /usr/bin/gnatlink-12 x86_64-linux-gnu-gnatlink-12
entry l 0777 0 0 0 /usr/bin/llvm-readobj ../lib/llvm-14/bin/llvm-readobj
entry f 0755 0 0 14544 /usr/bin/composite-im6.q16
entry f 0755 0 0 1229 /usr/bin/pg_config
entry f 0755 0 0 35136 /usr/bin/ionice
entry l 0777 0 0 0 /usr/bin/ld.gold x86_64-linux-gnu-ld.gold
entry f 0755 0 0 298912 /usr/bin/localedef
entry l 0777 0 0 0 /usr/bin/gp-collect-app x86_64-linux-gnu-gp-collect-app
entry f 0755 0 0 18928 /usr/bin/xlsclients
entry f 0755 0 0 43824 /usr/bin/xkbevd
entry f 0755 0 0 159544 /usr/bin/install
entry f 0755 0 0 108936 /usr/bin/networkctl
entry l 0777 0 0 0 /usr/bin/lzmore /etc/alternatives/lzmore
entry l 0777 0 0 0 /usr/bin/linux32 setarch
entry f 0755 0 0 432304 /usr/bin/gplink
entry f 0755 0 0 2589144 /usr/bin/fpdoc-3.2.2
entry f 0755 0 0 1719 /usr/bin/debconf-copydb
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-gnatgcc x86_64-linux-gnu-gcc-12
entry f 0755 0 0 52280 /usr/bin/wc
entry f 0755 0 0 1436 /usr/bin/xml2-config
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-gfortran gfortran-12
entry f 0755 0 0 10803 /usr/bin/pod2text
entry l 0777 0 0 0 /usr/bin/jarsigner /etc/alternatives/jarsigner
entry f 0755 0 0 22768 /usr/bin/xmlcatalog
entry f 4755 0 0 48896 /usr/bin/newgrp
entry f 0755 0 0 3060 /usr/bin/migrate-pubring-from-classic-gpg
entry f 0755 0 0 769408 /usr/bin/x86_64-linux-gnu-readelf
entry l 0777 0 0 0 /usr/bin/pgbench ../share/postgresql-common/pg_wrapper
entry f 0755 0 0 35368 /usr/bin/nsenter
entry f 0755 0 0 92496 /usr/bin/gio
entry f 0755 0 0 1189952 /usr/bin/bear
entry f 0755 0 0 14576 /usr/bin/png-fix-itxt
entry f 0755 0 0 4992 /usr/bin/json_pp
entry f 0755 0 0 27224 /usr/bin/xlsfonts
entry f 0755 0 0 22840 /usr/bin/rename.ul
entry l 0777 0 0 0 /usr/bin/llc-14 ../lib/llvm-14/bin/llc
entry f 0755 0 0 162880 /usr/bin/x86_64-linux-gnu-gp-archive
entry f 0755 0 0 18848 /usr/bin/xvinfo
entry l 0777 0 0 0 /usr/bin/llvm-rc-14 ../lib/llvm-14/bin/llvm-rc
entry f 0755 0 0 59784 /usr/bin/apt-mark
entry f 0755 0 0 123192 /usr/bin/lsfd
entry f 0755 0 0 2346 /usr/bin/gunzip
entry l 0777 0 0 0 /usr/bin/conjure /etc/alternatives/conjure
entry f 0755 0 0 125 /usr/bin/perldoc
entry f 0755 0 0 60336 /usr/bin/stdbuf
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-gnatls x86_64-linux-gnu-gnatls-12
entry f 0755 0 0 51472 /usr/bin/cg_merge
entry l 0777 0 0 0 /usr/bin/unzstd zstd
entry f 0755 0 0 31728 /usr/bin/x86_64-linux-gnu-strings
entry l 0777 0 0 0 /usr/bin/sanstats ../lib/llvm-14/bin/sanstats
entry f 0755 0 0 240280 /usr/bin/make
entry f 0755 0 0 32139 /usr/bin/x86_64-linux-gnu-gnathtml-12
entry f 0755 0 0 8103 /usr/bin/zgrep
entry l 0777 0 0 0 /usr/bin/llvm-sim-14 ../lib/llvm-14/bin/llvm-sim
entry l 0777 0 0 0 /usr/bin/sh dash
entry f 0755 0 0 18672 /usr/bin/tabs
entry f 0755 0 0 18664 /usr/bin/pkttyagent
entry f 0755 0 0 199744 /usr/bin/mkx86ins-3.2.2
entry f 0755 0 0 18672 /usr/bin/dumpsexp
entry l 0777 0 0 0 /usr/bin/fpdoc /etc/alternatives/fpdoc
entry f 0755 0 0 51800 /usr/bin/systemd-firstboot
entry f 0755 0 0 3713416 /usr/bin/git
entry f 0755 0 0 43888 /usr/bin/nice
entry l 0777 0 0 0 /usr/bin/llvm-dlltool ../lib/llvm-14/bin/llvm-dlltool
entry f 0755 0 0 28768 /usr/bin/oclock
entry f 0755 0 0 551056 /usr/bin/plex-3.2.2
entry f 0755 0 0 10333 /usr/bin/xzgrep
entry f 0755 0 0 22840 /usr/bin/kill
entry l 0777 0 0 0 /usr/bin/rmcvsdir /etc/alternatives/rmcvsdir
entry f 0755 0 0 2783 /usr/bin/dpkg-distaddfile
entry l 0777 0 0 0 /usr/bin/gnatgcc x86_64-linux-gnu-gcc-12
entry f 0755 0 0 59712 /usr/bin/more
entry f 0755 0 0 15202 /usr/bin/dpkg-architecture
entry f 0755 0 0 48144 /usr/bin/id
entry f 0755 0 0 1888984 /usr/bin/x86_64-linux-gnu-gnatls-12
entry f 0755 0 0 48536 /usr/bin/env
entry f 0755 0 0 72824 /usr/bin/ln
entry f 0755 0 0 159400 /usr/bin/x86_64-linux-gnu-objcopy
entry f 0755 0 0 158680 /usr/bin/gpg-connect-agent
entry l 0777 0 0 0 /usr/bin/size x86_64-linux-gnu-size
entry l 0777 0 0 0 /usr/bin/pstree.x11 pstree
entry l 0777 0 0 0 /usr/bin/gnatls-12 x86_64-linux-gnu-gnatls-12
entry f 0755 0 0 51592 /usr/bin/apt-get
entry l 0777 0 0 0 /usr/bin/ex /etc/alternatives/ex
entry l 0777 0 0 0 /usr/bin/intercept-build-14 ../lib/llvm-14/bin/intercept-build
entry f 0755 0 0 27216 /usr/bin/setarch
entry f 0755 0 0 172008 /usr/bin/genrb
entry f 0755 0 0 1713616 /usr/bin/cldrparser-3.2.2
entry f 0755 0 0 124272 /usr/bin/man
entry f 0755 0 0 913 /usr/bin/neqn
entry f 0755 0 0 76096 /usr/bin/ipcs
entry f 0755 0 0 1711928 /usr/bin/x86_64-linux-gnu-gnatclean-12
entry f 0755 0 0 2398424 /usr/bin/x86_64-linux-gnu-gnatbind-12
entry f 0755 0 0 14560 /usr/bin/dbus-cleanup-sockets
entry f 0755 0 0 28416 /usr/bin/xconsole
entry f 0755 0 0 35592 /usr/bin/faked-sysv
entry f 0755 0 0 22848 /usr/bin/write
entry f 0755 0 0 100672 /usr/bin/lsipc
entry f 0755 0 0 4577 /usr/bin/znew
entry l 0777 0 0 0 /usr/bin/gnatbind gnatbind-12
entry l 0777 0 0 0 /usr/bin/gcc-nm gcc-nm-12
entry l 0777 0 0 0 /usr/bin/clang-move-14 ../lib/llvm-14/bin/clang-move
entry l 0777 0 0 0 /usr/bin/gnatmake gnatmake-12
entry f 0755 0 0 289376 /usr/bin/sftp
entry f 0755 0 0 48016 /usr/bin/fmt
entry f 0755 0 0 1213976 /usr/bin/rstconv-3.2.2
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-gnatprep x86_64-linux-gnu-gnatprep-12
entry f 0755 0 0 30944 /usr/bin/dbus-send
entry l 0777 0 0 0 /usr/bin/llvm-objcopy-14 ../lib/llvm-14/bin/llvm-objcopy
entry f 0755 0 0 179480 /usr/bin/x86_64-linux-gnu-gp-collect-app
entry f 0755 0 0 18760 /usr/bin/tload
entry l 0777 0 0 0 /usr/bin/captoinfo tic
entry f 0755 0 0 7624 /usr/bin/dpkg-checkbuilddeps
entry f 0755 0 0 1606 /usr/bin/fpc-depends-3.2.2
entry f 2755 0 42 80376 /usr/bin/chage
entry f 0755 0 0 43632 /usr/bin/systemd-creds
entry f 0755 0 0 23457 /usr/bin/dpkg-source
entry l 0777 0 0 0 /usr/bin/qtdiag qtchooser
entry f 0755 0 0 18752 /usr/bin/look
entry l 0777 0 0 0 /usr/bin/qmlscene qtchooser
entry f 0755 0 0 8381 /usr/bin/cpan5.36-x86_64-linux-gnu
entry f 0755 0 0 23320 /usr/bin/srec_cat
entry f 0755 0 0 35136 /usr/bin/getopt
entry f 0755 0 0 48176 /usr/bin/pinky
entry l 0777 0 0 0 /usr/bin/qmlcachegen qtchooser
entry f 0755 0 0 437272 /usr/bin/rexx
entry f 0755 0 0 207168 /usr/bin/lsblk
entry f 0755 0 0 19008 /usr/bin/srec_cmp
entry l 0777 0 0 0 /usr/bin/local-extract ../lib/google-cloud-sdk/bin/local-extract
entry f 0755 0 0 14544 /usr/bin/mogrify-im6.q16
entry f 0755 0 0 39224 /usr/bin/bunzip2
entry f 0755 0 0 64432 /usr/bin/printf
entry f 0755 0 0 19449 /usr/bin/splain
entry l 0777 0 0 0 /usr/bin/jdeprscan /etc/alternatives/jdeprscan
entry l 0777 0 0 0 /usr/bin/objdump x86_64-linux-gnu-objdump
entry f 0755 0 0 52144 /usr/bin/realpath
entry l 0777 0 0 0 /usr/bin/postw32 /etc/alternatives/postw32
entry l 0777 0 0 0 /usr/bin/jpackage /etc/alternatives/jpackage
entry f 0755 0 0 43920 /usr/bin/nohup
entry l 0777 0 0 0 /usr/bin/kpt ../lib/google-cloud-sdk/bin/kpt
entry f 0755 0 0 52736 /usr/bin/xauth
entry l 0777 0 0 0 /usr/bin/asan_symbolize asan_symbolize-14
entry f 0755 0 0 18664 /usr/bin/pkaction
entry f 0755 0 0 6460 /usr/bin/zdiff
entry l 0777 0 0 0 /usr/bin/fusermount fusermount3
entry f 0755 0 0 1189104 /usr/bin/fpcjres-3.2.2
entry f 0755 0 0 43888 /usr/bin/pathchk
entry f 0755 0 0 150104 /usr/bin/x86_64-linux-gnu-gprofng
entry f 0755 0 0 68024 /usr/bin/preconv
entry f 0755 0 0 18744 /usr/bin/msgexec
entry l 0777 0 0 0 /usr/bin/bin2obj /etc/alternatives/bin2obj
entry l 0777 0 0 0 /usr/bin/gpic pic
entry f 0755 0 0 56208 /usr/bin/basenc
entry f 0755 0 0 14584 /usr/bin/lessecho
entry l 0777 0 0 0 /usr/bin/chmls /etc/alternatives/chmls
entry f 0755 0 0 13061 /usr/bin/kernel-install
entry f 0755 0 0 41947 /usr/bin/enc2xs
entry f 0755 0 0 72400 /usr/bin/lslocks
entry f 0755 0 0 23000 /usr/bin/funzip
entry f 4755 0 0 62672 /usr/bin/chfn
entry l 0777 0 0 0 /usr/bin/bugpoint ../lib/llvm-14/bin/bugpoint
entry l 0777 0 0 0 /usr/bin/libpng-config libpng16-config
entry f 0755 0 0 18816 /usr/bin/systemd-stdio-bridge
entry f 0755 0 0 47752 /usr/bin/qtchooser
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-ld x86_64-linux-gnu-ld.bfd
entry f 0755 0 0 362352 /usr/bin/gpstrip
entry f 0755 0 0 2141792 /usr/bin/git-shell
entry f 0755 0 0 39792 /usr/bin/whoami
entry l 0777 0 0 0 /usr/bin/keytool /etc/alternatives/keytool
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-gnatlink x86_64-linux-gnu-gnatlink-12
entry f 0755 0 0 35136 /usr/bin/col
entry f 0755 0 0 5918 /usr/bin/pg_renamecluster
entry l 0777 0 0 0 /usr/bin/jmod /etc/alternatives/jmod
entry l 0777 0 0 0 /usr/bin/npm ../lib/node_modules/npm/bin/npm-cli.js
entry f 0755 0 0 22840 /usr/bin/msguniq
entry l 0777 0 0 0 /usr/bin/obj2yaml ../lib/llvm-14/bin/obj2yaml
entry f 0755 0 0 1118512 /usr/bin/json2pas-3.2.2
entry l 0777 0 0 0 /usr/bin/clang-check-14 ../lib/llvm-14/bin/clang-check
entry f 0755 0 0 2514 /usr/bin/helpztags
entry f 0755 0 0 51600 /usr/bin/hardlink
entry l 0777 0 0 0 /usr/bin/llvm-tli-checker-14 ../lib/llvm-14/bin/llvm-tli-checker
entry l 0777 0 0 0 /usr/bin/gnatprep gnatprep-12
entry l 0777 0 0 0 /usr/bin/unlz4 lz4
entry f 0755 0 0 851720 /usr/bin/chmcmd-3.2.2
entry l 0777 0 0 0 /usr/bin/clang++-14 ../lib/llvm-14/bin/clang++
entry f 0755 0 0 56240 /usr/bin/rmdir
entry l 0777 0 0 0 /usr/bin/bzfgrep bzgrep
entry l 0777 0 0 0 /usr/bin/glib-compile-schemas ../lib/x86_64-linux-gnu/glib-2.0/glib-compile-schemas
entry f 0755 0 0 34643 /usr/bin/pg_upgradecluster
entry l 0777 0 0 0 /usr/bin/lto-dump-12 x86_64-linux-gnu-lto-dump-12
entry l 0777 0 0 0 /usr/bin/llvm-objdump ../lib/llvm-14/bin/llvm-objdump
entry l 0777 0 0 0 /usr/bin/ncurses5-config ncurses6-config
entry l 0777 0 0 0 /usr/bin/jstatd /etc/alternatives/jstatd
entry f 0755 0 0 976136 /usr/bin/openssl
entry l 0777 0 0 0 /usr/bin/clang-scan-deps-14 ../lib/llvm-14/bin/clang-scan-deps
entry f 0755 0 0 14544 /usr/bin/display-im6.q16
entry f 0755 0 0 43920 /usr/bin/truncate
entry f 0755 0 0 769816 /usr/bin/x86_64-linux-gnu-gnatchop-12
entry l 0777 0 0 0 /usr/bin/domainname hostname
entry f 0755 0 0 197 /usr/bin/zstdless
entry f 0755 0 0 581656 /usr/bin/x86_64-linux-gnu-gcov-dump-12
entry f 0755 0 0 1671 /usr/bin/bats
entry f 0755 0 0 22840 /usr/bin/msgcat
entry l 0777 0 0 0 /usr/bin/samplecfg /etc/alternatives/samplecfg
entry f 0755 0 0 6266 /usr/bin/pg_conftool
entry l 0777 0 0 0 /usr/bin/jrunscript /etc/alternatives/jrunscript
entry l 0777 0 0 0 /usr/bin/X11 .
entry f 0755 0 0 27008 /usr/bin/localectl
entry f 0755 0 0 1265648 /usr/bin/bash
entry l 0777 0 0 0 /usr/bin/analyze-build-14 ../lib/llvm-14/bin/analyze-build
entry l 0777 0 0 0 /usr/bin/gnatclean gnatclean-12
entry f 0755 0 0 43384 /usr/bin/timedatectl
entry f 0755 0 0 2859 /usr/bin/debconf
entry l 0777 0 0 0 /usr/bin/jexec /etc/alternatives/jexec
entry l 0777 0 0 0 /usr/bin/moc qtchooser
entry l 0777 0 0 0 /usr/bin/lzless /etc/alternatives/lzless
entry l 0777 0 0 0 /usr/bin/zstdmt zstd
entry f 0755 0 0 9464 /usr/bin/pg_virtualenv
entry f 0755 0 0 193184 /usr/bin/postw32-3.2.2
entry f 0755 0 0 2555 /usr/bin/python-argcomplete-check-easy-install-script
entry l 0777 0 0 0 /usr/bin/assistant qtchooser
entry l 0777 0 0 0 /usr/bin/data2inc /etc/alternatives/data2inc
entry f 0755 0 0 14792 /usr/bin/pslog
entry f 0755 0 0 14488 /usr/bin/clear_console
entry l 0777 0 0 0 /usr/bin/fakeroot /etc/alternatives/fakeroot
entry l 0777 0 0 0 /usr/bin/kubectl ../lib/google-cloud-sdk/bin/kubectl
entry f 0755 0 0 68656 /usr/bin/chgrp
entry f 0755 0 0 18816 /usr/bin/systemd-notify
entry f 0755 0 0 60064 /usr/bin/vgdb
entry f 0755 0 0 1917 /usr/bin/register-python-argcomplete
entry l 0777 0 0 0 /usr/bin/nisdomainname hostname
entry f 0755 0 0 7784 /usr/bin/lcf
entry f 0755 0 0 4536 /usr/bin/pl2pm
entry l 0777 0 0 0 /usr/bin/f77 /etc/alternatives/f77
entry l 0777 0 0 0 /usr/bin/compare /etc/alternatives/compare
entry f 0755 0 0 2576 /usr/bin/nspr-config
entry f 0755 0 0 2807 /usr/bin/x11perfcomp
entry f 0755 0 0 35664 /usr/bin/printenv
entry f 0755 0 0 97552 /usr/bin/mkdir
entry l 0777 0 0 0 /usr/bin/llvm-c-test ../lib/llvm-14/bin/llvm-c-test
entry f 0755 0 0 5276560 /usr/bin/gpdasm
entry f 0755 0 0 27712 /usr/bin/xclipboard
entry f 0755 0 0 64496 /usr/bin/chmod
entry f 0755 0 0 15352 /usr/bin/tzselect
entry l 0777 0 0 0 /usr/bin/fpc-depends /etc/alternatives/fpc-depends
entry f 0755 0 0 737440 /usr/bin/x86_64-linux-gnu-gcov-12
entry f 0755 0 0 51808 /usr/bin/systemd-mount
entry f 0755 0 0 1301496 /usr/bin/x86_64-linux-gnu-gcc-12
entry l 0777 0 0 0 /usr/bin/modularize-14 ../lib/llvm-14/bin/modularize
entry f 0755 0 0 39760 /usr/bin/hostid
entry l 0777 0 0 0 /usr/bin/c89 /etc/alternatives/c89
entry l 0777 0 0 0 /usr/bin/gcc-ranlib gcc-ranlib-12
entry f 0755 0 0 47272 /usr/bin/locale
entry l 0777 0 0 0 /usr/bin/which /etc/alternatives/which
entry f 0755 0 0 18752 /usr/bin/apt
entry f 0755 0 0 23960 /usr/bin/xkbvleds
entry l 0777 0 0 0 /usr/bin/clang-tidy-14 ../lib/llvm-14/bin/clang-tidy
entry l 0777 0 0 0 /usr/bin/qmlprofiler qtchooser
entry f 0755 0 0 216168 /usr/bin/osslsigncode
entry f 0755 0 0 14544 /usr/bin/animate-im6.q16
entry f 0755 0 0 39760 /usr/bin/link
entry l 0777 0 0 0 /usr/bin/git-receive-pack git
entry f 0755 0 0 32288 /usr/bin/viewres
entry f 0755 0 0 1297 /usr/bin/bzmore
entry f 0755 0 0 102200 /usr/bin/df
entry l 0777 0 0 0 /usr/bin/ranlib x86_64-linux-gnu-ranlib
entry f 0755 0 0 14648 /usr/bin/renice
entry f 0755 0 0 92672 /usr/bin/busctl
entry l 0777 0 0 0 /usr/bin/ppdep /etc/alternatives/ppdep
entry l 0777 0 0 0 /usr/bin/dwp x86_64-linux-gnu-dwp
entry f 0755 0 0 23472 /usr/bin/xcutsel
entry f 0755 0 0 39760 /usr/bin/unlink
entry l 0777 0 0 0 /usr/bin/ppudump /etc/alternatives/ppudump
entry l 0777 0 0 0 /usr/bin/llvm-lib-14 ../lib/llvm-14/bin/llvm-lib
entry f 0755 0 0 23016 /usr/bin/systemd-cgls
entry f 2755 0 101 485760 /usr/bin/ssh-agent
entry f 0755 0 0 2433656 /usr/bin/fppkg-3.2.2
entry l 0777 0 0 0 /usr/bin/jdb /etc/alternatives/jdb
entry l 0777 0 0 0 /usr/bin/llvm-readelf-14 ../lib/llvm-14/bin/llvm-readelf
entry f 0755 0 0 60400 /usr/bin/b2sum
entry l 0777 0 0 0 /usr/bin/xmlpatternsvalidator qtchooser
entry l 0777 0 0 0 /usr/bin/wish wish8.6
entry f 0755 0 0 115504 /usr/bin/xditview
entry l 0777 0 0 0 /usr/bin/pc /etc/alternatives/pc
entry f 0755 0 0 14664 /usr/bin/ischroot
entry l 0777 0 0 0 /usr/bin/qtplugininfo qtchooser
entry l 0777 0 0 0 /usr/bin/llvm-size-14 ../lib/llvm-14/bin/llvm-size
entry l 0777 0 0 0 /usr/bin/gcloud-crc32c ../lib/google-cloud-sdk/bin/gcloud-crc32c
entry f 0755 0 0 97488 /usr/bin/stat
entry l 0777 0 0 0 /usr/bin/llvm-PerfectShuffle-14 ../lib/llvm-14/bin/llvm-PerfectShuffle
entry f 0755 0 0 72752 /usr/bin/chown
entry f 0755 0 0 14328 /usr/bin/regina
entry f 0755 0 0 1245072 /usr/bin/pas2fpm-3.2.2
entry f 0755 0 0 31914 /usr/bin/dpkg-shlibdeps
entry l 0777 0 0 0 /usr/bin/ppumove /etc/alternatives/ppumove
entry f 0755 0 0 22680 /usr/bin/hostname
entry f 0755 0 0 39760 /usr/bin/prlimit
entry l 0777 0 0 0 /usr/bin/clangd clangd-14
entry l 0777 0 0 0 /usr/bin/qmllint qtchooser
entry f 0755 0 0 43888 /usr/bin/sleep
entry l 0777 0 0 0 /usr/bin/llvm-profdata ../lib/llvm-14/bin/llvm-profdata
entry l 0777 0 0 0 /usr/bin/count-14 ../lib/llvm-14/bin/count
entry f 0755 0 0 5188 /usr/bin/gettext.sh
entry f 0755 0 0 39760 /usr/bin/logname
entry l 0777 0 0 0 /usr/bin/lzma /etc/alternatives/lzma
entry l 0777 0 0 0 /usr/bin/gnatbind-12 x86_64-linux-gnu-gnatbind-12
entry l 0777 0 0 0 /usr/bin/cbt ../lib/google-cloud-sdk/bin/cbt
entry f 0755 0 0 3990 /usr/bin/fakeroot-tcp
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-gnatname x86_64-linux-gnu-gnatname-12
entry f 0755 0 0 154432 /usr/bin/x86_64-linux-gnu-gp-display-src
entry f 0755 0 0 14584 /usr/bin/lsattr
entry f 0755 0 0 18760 /usr/bin/gdk-pixbuf-thumbnailer
entry l 0777 0 0 0 /usr/bin/javap /etc/alternatives/javap
entry f 0755 0 0 72376 /usr/bin/msgmerge
entry f 0755 0 0 43792 /usr/bin/catman
entry f 0755 0 0 45552 /usr/bin/xfontsel
entry l 0777 0 0 0 /usr/bin/pkg-config pkgconf
entry f 0755 0 0 14792 /usr/bin/bmtoa
entry l 0777 0 0 0 /usr/bin/lld lld-14
entry f 0755 0 0 3016 /usr/bin/fp-fix-timestamps
entry f 0755 0 0 43952 /usr/bin/pwd
entry f 0755 0 0 14600 /usr/bin/gdk-pixbuf-csource
entry l 0777 0 0 0 /usr/bin/llvm-objcopy ../lib/llvm-14/bin/llvm-objcopy
entry f 0755 0 0 75296 /usr/bin/editres
entry l 0777 0 0 0 /usr/bin/qtattributionsscanner qtchooser
entry l 0777 0 0 0 /usr/bin/llvm-addr2line-14 ../lib/llvm-14/bin/llvm-addr2line
entry l 0777 0 0 0 /usr/bin/jimage /etc/alternatives/jimage
entry f 0755 0 0 671984 /usr/bin/findent
entry l 0777 0 0 0 /usr/bin/gio-querymodules ../lib/x86_64-linux-gnu/glib-2.0/gio-querymodules
entry l 0777 0 0 0 /usr/bin/clang-offload-wrapper-14 ../lib/llvm-14/bin/clang-offload-wrapper
entry l 0777 0 0 0 /usr/bin/jar /etc/alternatives/jar
entry f 0755 0 0 29 /usr/bin/zegrep
entry f 0755 0 0 43920 /usr/bin/fold
entry f 0755 0 0 31720 /usr/bin/xev
entry f 0755 0 0 72136 /usr/bin/xargs
entry l 0777 0 0 0 /usr/bin/gnatname-12 x86_64-linux-gnu-gnatname-12
entry f 0755 0 0 35200 /usr/bin/ipcmk
entry l 0777 0 0 0 /usr/bin/bzegrep bzgrep
entry f 0755 0 0 59552 /usr/bin/pngfix
entry f 0755 0 0 88560 /usr/bin/dpkg-trigger
entry l 0777 0 0 0 /usr/bin/llvm-pdbutil ../lib/llvm-14/bin/llvm-pdbutil
entry l 0777 0 0 0 /usr/bin/h2paspp /etc/alternatives/h2paspp
entry f 0755 0 0 207872 /usr/bin/gpg-wks-server
entry l 0777 0 0 0 /usr/bin/elfedit x86_64-linux-gnu-elfedit
entry f 0755 0 0 18928 /usr/bin/systemd-ask-password
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-pkgconf pkgconf
entry l 0777 0 0 0 /usr/bin/stream-im6 /etc/alternatives/stream-im6
entry l 0777 0 0 0 /usr/bin/llvm-debuginfod-find-14 ../lib/llvm-14/bin/llvm-debuginfod-find
entry f 0755 0 0 383 /usr/bin/python-argcomplete-tcsh
entry f 0755 0 0 68784 /usr/bin/mkfifo
entry f 0755 0 0 45096 /usr/bin/pkgconf
entry f 0755 0 0 4970920 /usr/bin/cppcheck
entry f 0755 0 0 26944 /usr/bin/apt-config
entry l 0777 0 0 0 /usr/bin/createlang ../share/postgresql-common/pg_wrapper
entry f 0755 0 0 963 /usr/bin/pyflakes3
entry l 0777 0 0 0 /usr/bin/nawk /etc/alternatives/nawk
entry l 0777 0 0 0 /usr/bin/llvm-strings ../lib/llvm-14/bin/llvm-strings
entry l 0777 0 0 0 /usr/bin/sanstats-14 ../lib/llvm-14/bin/sanstats
entry l 0777 0 0 0 /usr/bin/fprcp /etc/alternatives/fprcp
entry f 0755 0 0 3775 /usr/bin/bzgrep
entry f 0755 0 0 6499 /usr/bin/mtrace
entry f 0755 0 0 567584 /usr/bin/chmls-3.2.2
entry l 0777 0 0 0 /usr/bin/llvm-jitlink-14 ../lib/llvm-14/bin/llvm-jitlink
entry f 0755 0 0 14912 /usr/bin/icuinfo
entry l 0777 0 0 0 /usr/bin/gnatkr gnatkr-12
entry f 0755 0 0 384912 /usr/bin/gplib
entry f 0755 0 0 15034 /usr/bin/pod2man
entry l 0777 0 0 0 /usr/bin/g++-12 x86_64-linux-gnu-g++-12
entry l 0777 0 0 0 /usr/bin/llvm-lto2 ../lib/llvm-14/bin/llvm-lto2
entry f 0755 0 0 44658 /usr/bin/callgrind_annotate
entry l 0777 0 0 0 /usr/bin/qmljs qtchooser
entry f 0755 0 0 56208 /usr/bin/tr
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-gcov-tool gcov-tool-12
entry f 0755 0 0 17809 /usr/bin/dpkg-genchanges
entry l 0777 0 0 0 /usr/bin/gcc-ar-12 x86_64-linux-gnu-gcc-ar-12
entry f 0755 0 0 3995 /usr/bin/fakeroot-sysv
entry f 0755 0 0 15778 /usr/bin/libnetcfg
entry l 0777 0 0 0 /usr/bin/compare-im6 /etc/alternatives/compare-im6
entry f 0755 0 0 1081 /usr/bin/lspgpot
entry f 0755 0 0 43856 /usr/bin/echo
entry f 0755 0 0 117168 /usr/bin/msggrep
entry f 0755 0 0 21206 /usr/bin/dpkg-maintscript-helper
entry l 0777 0 0 0 /usr/bin/llvm-modextract-14 ../lib/llvm-14/bin/llvm-modextract
entry f 0755 0 0 14648 /usr/bin/lzmainfo
entry l 0777 0 0 0 /usr/bin/llvm-lto2-14 ../lib/llvm-14/bin/llvm-lto2
entry f 0755 0 0 470384 /usr/bin/wget
entry f 0755 0 0 113712 /usr/bin/tac
entry l 0777 0 0 0 /usr/bin/llvm-extract-14 ../lib/llvm-14/bin/llvm-extract
entry f 0755 0 0 540320 /usr/bin/gpgsm
entry f 0755 0 0 72080 /usr/bin/bwrap
entry l 0777 0 0 0 /usr/bin/clang-linker-wrapper-14 ../lib/llvm-14/bin/clang-linker-wrapper
entry l 0777 0 0 0 /usr/bin/cpp-12 x86_64-linux-gnu-cpp-12
entry f 0755 0 0 38140 /usr/bin/asan_symbolize-14
entry l 0777 0 0 0 /usr/bin/scan-view-14 ../share/clang/scan-view-14/bin/scan-view
entry f 0755 0 0 50320 /usr/bin/xmag
entry l 0777 0 0 0 /usr/bin/xzcat xz
entry l 0777 0 0 0 /usr/bin/llvm-modextract ../lib/llvm-14/bin/llvm-modextract
entry f 0755 0 0 70193 /usr/bin/zipdetails
entry f 0755 0 0 126424 /usr/bin/sed
entry f 0755 0 0 43984 /usr/bin/tee
entry f 0755 0 0 1431344 /usr/bin/unitdiff-3.2.2
entry f 0755 0 0 72024 /usr/bin/wdctl
entry f 0755 0 0 3256 /usr/bin/dpkg-vendor
entry f 0755 0 0 56272 /usr/bin/sha1sum
entry l 0777 0 0 0 /usr/bin/lli ../lib/llvm-14/bin/lli
entry f 0755 0 0 158264 /usr/bin/dpkg-divert
entry l 0777 0 0 0 /usr/bin/llvm-dis ../lib/llvm-14/bin/llvm-dis
entry l 0777 0 0 0 /usr/bin/llvm-reduce-14 ../lib/llvm-14/bin/llvm-reduce
entry l 0777 0 0 0 /usr/bin/dev_appserver.py ../lib/google-cloud-sdk/bin/dev_appserver.py
entry l 0777 0 0 0 /usr/bin/llvm-exegesis ../lib/llvm-14/bin/llvm-exegesis
entry f 0755 0 0 68720 /usr/bin/chcon
entry f 0755 0 0 1275808 /usr/bin/ppudump-3.2.2
entry f 0755 0 0 366352 /usr/bin/gpvo
entry f 0755 0 0 53024 /usr/bin/login
entry f 0755 0 0 76432 /usr/bin/journalctl
entry l 0777 0 0 0 /usr/bin/gp-archive x86_64-linux-gnu-gp-archive
entry l 0777 0 0 0 /usr/bin/llvm-undname-14 ../lib/llvm-14/bin/llvm-undname
entry f 0755 0 0 14704 /usr/bin/fc-query
entry f 0755 0 0 221 /usr/bin/pip
entry f 0755 0 0 2225 /usr/bin/bzdiff
entry f 0755 0 0 54496 /usr/bin/icuexportdata
entry l 0777 0 0 0 /usr/bin/ctstat lnstat
entry f 0755 0 0 39824 /usr/bin/sync
entry l 0777 0 0 0 /usr/bin/jinfo /etc/alternatives/jinfo
entry f 0755 0 0 22848 /usr/bin/ul
entry f 0755 0 0 234 /usr/bin/xdg-user-dir
entry f 0755 0 0 27008 /usr/bin/systemd-socket-activate
entry f 0755 0 0 14648 /usr/bin/setsid
entry f 0755 0 0 14848 /usr/bin/peekfd
entry f 0755 0 0 174688 /usr/bin/readtags
entry f 0755 0 0 18808 /usr/bin/systemd-escape
entry l 0777 0 0 0 /usr/bin/opt-14 ../lib/llvm-14/bin/opt
entry l 0777 0 0 0 /usr/bin/llvm-link ../lib/llvm-14/bin/llvm-link
entry f 0755 0 0 85376 /usr/bin/xdotool
entry f 0755 0 0 28144 /usr/bin/xmessage
entry f 0755 0 0 18968 /usr/bin/fc-cat
entry l 0777 0 0 0 /usr/bin/qtconfig qtchooser
entry f 0755 0 0 6925 /usr/bin/c_rehash
entry l 0777 0 0 0 /usr/bin/llvm-config ../lib/llvm-14/bin/llvm-config
entry f 0755 0 0 60368 /usr/bin/sha256sum
entry f 0755 0 0 60432 /usr/bin/who
entry l 0777 0 0 0 /usr/bin/llvm-otool-14 ../lib/llvm-14/bin/llvm-otool
entry f 0755 0 0 14824 /usr/bin/atobm
entry l 0777 0 0 0 /usr/bin/llvm-bcanalyzer-14 ../lib/llvm-14/bin/llvm-bcanalyzer
entry f 0755 0 0 1842 /usr/bin/zmore
entry f 0755 0 0 363472 /usr/bin/gpvc
entry l 0777 0 0 0 /usr/bin/not-14 ../lib/llvm-14/bin/not
entry f 0755 0 0 530880 /usr/bin/ssh-add
entry f 0755 0 0 26856 /usr/bin/dbus-monitor
entry l 0777 0 0 0 /usr/bin/llvm-ifs-14 ../lib/llvm-14/bin/llvm-ifs
entry f 0755 0 0 14656 /usr/bin/cobcrun
entry l 0777 0 0 0 /usr/bin/qgltf qtchooser
entry l 0777 0 0 0 /usr/bin/fpc /etc/alternatives/fpc
entry l 0777 0 0 0 /usr/bin/ctags /etc/alternatives/ctags
entry f 0755 0 0 1305592 /usr/bin/x86_64-linux-gnu-g++-12
entry f 0755 0 0 63808 /usr/bin/uclampset
entry f 0755 0 0 44016 /usr/bin/cat
entry l 0777 0 0 0 /usr/bin/llvm-ranlib-14 ../lib/llvm-14/bin/llvm-ranlib
entry l 0777 0 0 0 /usr/bin/git-credential-gcloud.sh ../lib/google-cloud-sdk/bin/git-credential-gcloud.sh
entry f 0755 0 0 89240 /usr/bin/dd
entry f 0755 0 0 23696 /usr/bin/x86_64-linux-gnu-addr2line
entry f 0755 0 0 37456 /usr/bin/xeyes
entry l 0777 0 0 0 /usr/bin/gprof x86_64-linux-gnu-gprof
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-gcc-nm gcc-nm-12
entry f 0755 0 0 3511 /usr/bin/gcore
entry f 0755 0 0 56208 /usr/bin/tsort
entry f 0755 0 0 35200 /usr/bin/systemd-tty-ask-password-agent
entry f 0755 0 0 14648 /usr/bin/uptime
entry f 0755 0 0 23064 /usr/bin/zdump
entry f 0755 0 0 22904 /usr/bin/slabtop
entry l 0777 0 0 0 /usr/bin/llvm-cov ../lib/llvm-14/bin/llvm-cov
entry f 0755 0 0 31040 /usr/bin/colrm
entry l 0777 0 0 0 /usr/bin/qmlimportscanner qtchooser
entry f 0755 0 0 179248 /usr/bin/unzip
entry l 0777 0 0 0 /usr/bin/vimdiff /etc/alternatives/vimdiff
entry f 0755 0 0 151344 /usr/bin/ls
entry f 0755 0 0 213536 /usr/bin/grab_vcsa-3.2.2
entry f 0755 0 0 59712 /usr/bin/update-alternatives
entry f 0755 0 0 43984 /usr/bin/runcon
entry f 0755 0 0 43888 /usr/bin/uname
entry l 0777 0 0 0 /usr/bin/nodejs /etc/alternatives/nodejs
entry l 0777 0 0 0 /usr/bin/dsymutil-14 ../lib/llvm-14/bin/dsymutil
entry f 0755 0 0 85600 /usr/bin/findmnt
entry f 0755 0 0 4947 /usr/bin/dpkg-parsechangelog
entry l 0777 0 0 0 /usr/bin/import /etc/alternatives/import
entry f 0755 0 0 346416 /usr/bin/heaptrack_print
entry f 0755 0 0 68624 /usr/bin/numfmt
entry l 0777 0 0 0 /usr/bin/serialver /etc/alternatives/serialver
entry f 0755 0 0 31032 /usr/bin/utmpdump
entry l 0777 0 0 0 /usr/bin/cpp cpp-12
entry f 0755 0 0 59976 /usr/bin/systemd-run
entry l 0777 0 0 0 /usr/bin/jconsole /etc/alternatives/jconsole
entry f 0755 0 0 14752 /usr/bin/perl5.36-x86_64-linux-gnu
entry f 0755 0 0 15190 /usr/bin/pg_buildext
entry f 0755 0 0 24000 /usr/bin/xload
entry f 0755 0 0 142968 /usr/bin/mv
entry f 0755 0 0 37360 /usr/bin/xfd
entry f 0755 0 0 2471 /usr/bin/libpng16-config
entry f 0755 0 0 4186 /usr/bin/dpkg-realpath
entry f 0755 0 0 14544 /usr/bin/convert-im6.q16
entry f 0755 0 0 5696 /usr/bin/xvfb-run
entry f 0755 0 0 55616 /usr/bin/choom
entry l 0777 0 0 0 /usr/bin/llvm-nm-14 ../lib/llvm-14/bin/llvm-nm
entry l 0777 0 0 0 /usr/bin/gke-gcloud-auth-plugin ../lib/google-cloud-sdk/bin/gke-gcloud-auth-plugin
entry f 0755 0 0 940216 /usr/bin/gpasm
entry f 0755 0 0 9979 /usr/bin/shasum
entry f 0755 0 0 14560 /usr/bin/identify-im6.q16
entry f 0755 0 0 908512 /usr/bin/ptop-3.2.2
entry f 0755 0 0 933 /usr/bin/xq-python
entry l 0777 0 0 0 /usr/bin/x86_64 setarch
entry f 0755 0 0 48112 /usr/bin/cut
entry l 0777 0 0 0 /usr/bin/pyacc /etc/alternatives/pyacc
entry f 0755 0 0 52184 /usr/bin/sum
entry f 0755 0 0 9059728 /usr/bin/perf
entry l 0777 0 0 0 /usr/bin/view /etc/alternatives/view
entry f 0755 0 0 110952 /usr/bin/x86_64-linux-gnu-gprof
entry l 0777 0 0 0 /usr/bin/gcloud ../lib/google-cloud-sdk/bin/gcloud
entry l 0777 0 0 0 /usr/bin/ld.bfd x86_64-linux-gnu-ld.bfd
entry l 0777 0 0 0 /usr/bin/llvm-bcanalyzer ../lib/llvm-14/bin/llvm-bcanalyzer
entry l 0777 0 0 0 /usr/bin/llvm-dlltool-14 ../lib/llvm-14/bin/llvm-dlltool
entry l 0777 0 0 0 /usr/bin/qhelpconverter qtchooser
entry l 0777 0 0 0 /usr/bin/dropdb ../share/postgresql-common/pg_wrapper
entry f 0755 0 0 201584 /usr/bin/data2inc-3.2.2
entry l 0777 0 0 0 /usr/bin/llvm-undname ../lib/llvm-14/bin/llvm-undname
entry f 0755 0 0 15120 /usr/bin/listres
entry f 0755 0 0 52256 /usr/bin/makeconv
entry l 0777 0 0 0 /usr/bin/lld-14 ../lib/llvm-14/bin/lld
entry l 0777 0 0 0 /usr/bin/gcov-dump gcov-dump-12
entry f 0755 0 0 22840 /usr/bin/pkcheck
entry l 0777 0 0 0 /usr/bin/slogin ssh
entry l 0777 0 0 0 /usr/bin/mvnDebug /etc/alternatives/mvnDebug
entry f 0755 0 0 35664 /usr/bin/true
entry f 0755 0 0 7654 /usr/bin/tcltk-depends
entry f 0755 0 0 1253152 /usr/bin/pas2ut-3.2.2
entry f 0755 0 0 528 /usr/bin/valgrind
entry l 0777 0 0 0 /usr/bin/llvm-link-14 ../lib/llvm-14/bin/llvm-link
entry f 0755 0 0 60934 /usr/bin/h2xs
entry f 0755 0 0 13803 /usr/bin/pg_restorecluster
entry l 0777 0 0 0 /usr/bin/lzdiff /etc/alternatives/lzdiff
entry f 0755 0 0 52520 /usr/bin/whatis
entry l 0777 0 0 0 /usr/bin/clang-query-14 ../lib/llvm-14/bin/clang-query
entry l 0777 0 0 0 /usr/bin/clusterdb ../share/postgresql-common/pg_wrapper
entry f 0755 0 0 4395 /usr/bin/ptargrep
entry l 0777 0 0 0 /usr/bin/opt ../lib/llvm-14/bin/opt
entry f 0755 0 0 14720 /usr/bin/appres
entry f 0755 0 0 129520 /usr/bin/dpkg-split
entry f 0755 0 0 27504 /usr/bin/x86_64-linux-gnu-size
entry f 0755 0 0 198768 /usr/bin/mka64ins-3.2.2
entry f 0755 0 0 27384 /usr/bin/time
entry f 0755 0 0 40592 /usr/bin/xdpyinfo
entry f 0755 0 0 203152 /usr/bin/grep
entry l 0777 0 0 0 /usr/bin/gnatname gnatname-12
entry f 0755 0 0 512928 /usr/bin/rmcvsdir-3.2.2
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-gcc gcc-12
entry l 0777 0 0 0 /usr/bin/lzcmp /etc/alternatives/lzcmp
entry f 0755 0 0 5638 /usr/bin/clang-format-diff-14
entry f 0755 0 0 22768 /usr/bin/mpicalc
entry f 0755 0 0 760200 /usr/bin/pzstd
entry f 0755 0 0 10324 /usr/bin/cg_diff
entry l 0777 0 0 0 /usr/bin/llvm-omp-device-info-14 ../lib/llvm-14/bin/llvm-omp-device-info
entry l 0777 0 0 0 /usr/bin/makeskel /etc/alternatives/makeskel
entry f 0755 0 0 22848 /usr/bin/gapplication
entry f 0755 0 0 241760 /usr/bin/ppdep-3.2.2
entry l 0777 0 0 0 /usr/bin/gnatlink gnatlink-12
entry f 0755 0 0 45183 /usr/bin/perlthanks
entry l 0777 0 0 0 /usr/bin/llvm-cat ../lib/llvm-14/bin/llvm-cat
entry l 0777 0 0 0 /usr/bin/xzegrep xzgrep
entry l 0777 0 0 0 /usr/bin/pkill pgrep
entry l 0777 0 0 0 /usr/bin/gnatchop gnatchop-12
entry l 0777 0 0 0 /usr/bin/llvm-mc-14 ../lib/llvm-14/bin/llvm-mc
entry l 0777 0 0 0 /usr/bin/llvm-dwp-14 ../lib/llvm-14/bin/llvm-dwp
entry l 0777 0 0 0 /usr/bin/ppufiles /etc/alternatives/ppufiles
entry f 0755 0 0 14680 /usr/bin/xdriinfo
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-gnatbind x86_64-linux-gnu-gnatbind-12
entry f 0755 0 0 29 /usr/bin/zfgrep
entry l 0777 0 0 0 /usr/bin/llvm-dwarfdump ../lib/llvm-14/bin/llvm-dwarfdump
entry l 0777 0 0 0 /usr/bin/pidof /sbin/killall5
entry l 0777 0 0 0 /usr/bin/rview /etc/alternatives/rview
entry f 0755 0 0 79 /usr/bin/pydoc3.11
entry f 0755 0 0 225552 /usr/bin/pic
entry l 0777 0 0 0 /usr/bin/rtstat lnstat
entry f 0755 0 0 54144 /usr/bin/luit
entry f 0755 0 0 158376 /usr/bin/mawk
entry f 0755 0 0 1813 /usr/bin/xzless
entry f 0755 0 0 31040 /usr/bin/addpart
entry l 0777 0 0 0 /usr/bin/lto-dump lto-dump-12
entry l 0777 0 0 0 /usr/bin/uic3 qtchooser
entry l 0777 0 0 0 /usr/bin/lld-link lld-link-14
entry f 0755 0 0 14439 /usr/bin/add-apt-repository
entry f 0755 0 0 1004336 /usr/bin/tmux
entry l 0777 0 0 0 /usr/bin/jstack /etc/alternatives/jstack
entry f 0755 0 0 905720 /usr/bin/x86_64-linux-gnu-gnatlink-12
entry l 0777 0 0 0 /usr/bin/display-im6 /etc/alternatives/display-im6
entry f 0755 0 0 76944 /usr/bin/tail
entry f 0755 0 0 113776 /usr/bin/nl
entry l 0777 0 0 0 /usr/bin/llvm-install-name-tool-14 ../lib/llvm-14/bin/llvm-install-name-tool
entry f 0755 0 0 4282 /usr/bin/sotruss
entry f 0755 0 0 55216 /usr/bin/xclock
entry l 0777 0 0 0 /usr/bin/ld64.lld-14 ../lib/llvm-14/bin/ld64.lld
entry l 0777 0 0 0 /usr/bin/qdbuscpp2xml qtchooser
entry l 0777 0 0 0 /usr/bin/llvm-ranlib ../lib/llvm-14/bin/llvm-ranlib
entry f 0755 0 0 26936 /usr/bin/free
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-cpp cpp-12
entry f 0755 0 0 14816 /usr/bin/xkill
entry f 0755 0 0 2000696 /usr/bin/x86_64-linux-gnu-gnatmake-12
entry f 0755 0 0 184936 /usr/bin/rdma
entry l 0777 0 0 0 /usr/bin/llvm-strip-14 ../lib/llvm-14/bin/llvm-strip
entry f 0755 0 0 59888 /usr/bin/loginctl
entry l 0777 0 0 0 /usr/bin/llvm-tapi-diff-14 ../lib/llvm-14/bin/llvm-tapi-diff
entry l 0777 0 0 0 /usr/bin/llvm-cfi-verify ../lib/llvm-14/bin/llvm-cfi-verify
entry l 0777 0 0 0 /usr/bin/mvn /etc/alternatives/mvn
entry l 0777 0 0 0 /usr/bin/ld.so /lib64/ld-linux-x86-64.so.2
entry l 0777 0 0 0 /usr/bin/gp-display-src x86_64-linux-gnu-gp-display-src
entry f 0755 0 0 35184 /usr/bin/fincore
entry f 0755 0 0 56152 /usr/bin/uconv
entry f 0755 0 0 1455 /usr/bin/ssh-argv0
entry f 0755 0 0 18808 /usr/bin/systemd-detect-virt
entry f 0755 0 0 8335 /usr/bin/dpkg-buildflags
entry f 0755 0 0 56944 /usr/bin/pkcon
entry f 0755 0 0 3804432 /usr/bin/perl5.36.0
entry l 0777 0 0 0 /usr/bin/lzegrep /etc/alternatives/lzegrep
entry f 0755 0 0 178928 /usr/bin/gpgconf
entry f 0755 0 0 35200 /usr/bin/mcookie
entry l 0777 0 0 0 /usr/bin/sancov ../lib/llvm-14/bin/sancov
entry l 0777 0 0 0 /usr/bin/instantfpc /etc/alternatives/instantfpc
entry f 0755 0 0 1586088 /usr/bin/optscript
entry l 0777 0 0 0 /usr/bin/fpcres /etc/alternatives/fpcres
entry f 0755 0 0 2150 /usr/bin/xslt-config
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-gnatchop x86_64-linux-gnu-gnatchop-12
entry f 0755 0 0 2450 /usr/bin/select-editor
entry f 0755 0 0 6776 /usr/bin/dpkg-name
entry f 0755 0 0 56216 /usr/bin/logger
entry l 0777 0 0 0 /usr/bin/lconvert qtchooser
entry l 0777 0 0 0 /usr/bin/llvm-size ../lib/llvm-14/bin/llvm-size
entry l 0777 0 0 0 /usr/bin/xmlpatterns qtchooser
entry f 0755 0 0 43952 /usr/bin/mktemp
entry l 0777 0 0 0 /usr/bin/repc qtchooser
entry f 0755 0 0 39320 /usr/bin/systemd-cgtop
entry l 0777 0 0 0 /usr/bin/llvm-exegesis-14 ../lib/llvm-14/bin/llvm-exegesis
entry f 0755 0 0 80912 /usr/bin/od
entry l 0777 0 0 0 /usr/bin/llvm-symbolizer-14 ../lib/llvm-14/bin/llvm-symbolizer
entry f 0755 0 0 18808 /usr/bin/systemd-path
entry l 0777 0 0 0 /usr/bin/llvm-ar ../lib/llvm-14/bin/llvm-ar
entry l 0777 0 0 0 /usr/bin/gnatmake-12 x86_64-linux-gnu-gnatmake-12
entry f 0755 0 0 51520 /usr/bin/last
entry l 0777 0 0 0 /usr/bin/qdoc qtchooser
entry l 0777 0 0 0 /usr/bin/qml qtchooser
entry l 0777 0 0 0 /usr/bin/createdb ../share/postgresql-common/pg_wrapper
entry f 0755 0 0 6389 /usr/bin/pg_config.libpq-dev
entry l 0777 0 0 0 /usr/bin/gnat-12 x86_64-linux-gnu-gnat-12
entry f 0755 0 0 60696 /usr/bin/update-mime-database
entry l 0777 0 0 0 /usr/bin/llvm-cat-14 ../lib/llvm-14/bin/llvm-cat
entry f 0755 0 0 1269 /usr/bin/sensible-editor
entry f 0755 0 0 35872 /usr/bin/x86_64-linux-gnu-elfedit
entry l 0777 0 0 0 /usr/bin/llvm-lipo-14 ../lib/llvm-14/bin/llvm-lipo
entry f 0755 0 0 14736 /usr/bin/fc-pattern
entry l 0777 0 0 0 /usr/bin/llvm-reduce ../lib/llvm-14/bin/llvm-reduce
entry l 0777 0 0 0 /usr/bin/lzfgrep /etc/alternatives/lzfgrep
entry f 4755 0 0 35128 /usr/bin/umount
entry l 0777 0 0 0 /usr/bin/delp /etc/alternatives/delp
entry l 0777 0 0 0 /usr/bin/bzcmp bzdiff
entry l 0777 0 0 0 /usr/bin/apropos whatis
entry f 0755 0 0 17556 /usr/bin/pg_backupcluster
entry l 0777 0 0 0 /usr/bin/gcc-nm-12 x86_64-linux-gnu-gcc-nm-12
entry f 0755 0 0 198960 /usr/bin/less
entry f 0755 0 0 210352 /usr/bin/eqn
entry f 0755 0 0 193680 /usr/bin/ss
entry l 0777 0 0 0 /usr/bin/llvm-xray ../lib/llvm-14/bin/llvm-xray
entry l 0777 0 0 0 /usr/bin/llvm-cxxfilt ../lib/llvm-14/bin/llvm-cxxfilt
entry f 0755 0 0 3777 /usr/bin/cscope-indexer
entry l 0777 0 0 0 /usr/bin/qlalr qtchooser
entry l 0777 0 0 0 /usr/bin/gcc-12 x86_64-linux-gnu-gcc-12
entry l 0777 0 0 0 /usr/bin/gcc-ar gcc-ar-12
entry f 0755 0 0 51520 /usr/bin/gdbus
entry f 0755 0 0 4627 /usr/bin/gdb-add-index
entry f 0755 0 0 18952 /usr/bin/x86_64-linux-gnu-c++filt
entry f 0755 0 0 88576 /usr/bin/msgfmt
entry f 0755 0 0 6831736 /usr/bin/python3.11
entry f 0755 0 0 191936 /usr/bin/patch
entry l 0777 0 0 0 /usr/bin/bq ../lib/google-cloud-sdk/bin/bq
entry f 0755 0 0 19032 /usr/bin/fc-cache
entry l 0777 0 0 0 /usr/bin/stream /etc/alternatives/stream
entry l 0777 0 0 0 /usr/bin/addr2line x86_64-linux-gnu-addr2line
entry f 0755 0 0 96968 /usr/bin/bc
entry f 0755 0 0 106952 /usr/bin/nstat
entry l 0777 0 0 0 /usr/bin/infotocap tic
entry f 0755 0 0 970 /usr/bin/pygmentize
entry l 0777 0 0 0 /usr/bin/llvm-c-test-14 ../lib/llvm-14/bin/llvm-c-test
entry f 0755 0 0 27224 /usr/bin/lnstat
entry l 0777 0 0 0 /usr/bin/lli-14 ../lib/llvm-14/bin/lli
entry l 0777 0 0 0 /usr/bin/gnathtml gnathtml-12
entry f 0755 0 0 14768 /usr/bin/fc-scan
entry l 0777 0 0 0 /usr/bin/designer qtchooser
entry l 0777 0 0 0 /usr/bin/gprofng x86_64-linux-gnu-gprofng
entry f 0755 0 0 217360 /usr/bin/zip
entry f 0755 0 0 14680 /usr/bin/fc-conflist
entry f 0755 0 0 31945032 /usr/bin/x86_64-linux-gnu-lto-dump-12
entry l 0777 0 0 0 /usr/bin/llvm-objdump-14 ../lib/llvm-14/bin/llvm-objdump
entry f 4755 0 0 59704 /usr/bin/mount
entry f 0755 0 0 71992 /usr/bin/script
entry l 0777 0 0 0 /usr/bin/unlzma /etc/alternatives/unlzma
entry f 0755 0 0 1880736 /usr/bin/x86_64-linux-gnu-dwp
entry f 0755 0 0 1637432 /usr/bin/x86_64-linux-gnu-gnatname-12
entry f 0755 0 0 72912 /usr/bin/mknod
entry l 0777 0 0 0 /usr/bin/diagtool-14 ../lib/llvm-14/bin/diagtool
entry f 0755 0 0 1658 /usr/bin/routel
entry f 0755 0 0 88656 /usr/bin/dmesg
entry f 0755 0 0 267520 /usr/bin/mkinsadd-3.2.2
entry l 0777 0 0 0 /usr/bin/llvm-readelf ../lib/llvm-14/bin/llvm-readelf
entry f 0755 0 0 63808 /usr/bin/infocmp
entry l 0777 0 0 0 /usr/bin/pdb3.11 ../lib/python3.11/pdb.py
entry f 0755 0 0 155216 /usr/bin/diff
entry f 0755 0 0 41 /usr/bin/fgrep
entry l 0777 0 0 0 /usr/bin/clang-change-namespace-14 ../lib/llvm-14/bin/clang-change-namespace
entry l 0777 0 0 0 /usr/bin/reset tset
entry f 0755 0 0 736440 /usr/bin/x86_64-linux-gnu-gnatkr-12
entry f 0755 0 0 43920 /usr/bin/groups
entry f 0755 0 0 43920 /usr/bin/nproc
entry f 0755 0 0 18648 /usr/bin/xxd
entry l 0777 0 0 0 /usr/bin/pixeltool qtchooser
entry l 0777 0 0 0 /usr/bin/pydoc3 pydoc3.11
entry f 0755 0 0 24235 /usr/bin/pygettext3.11
entry l 0777 0 0 0 /usr/bin/pdb3 pdb3.11
entry l 0777 0 0 0 /usr/bin/ptop /etc/alternatives/ptop
entry f 0755 0 0 43920 /usr/bin/paste
entry f 0755 0 0 67904 /usr/bin/lsmem
entry l 0777 0 0 0 /usr/bin/clang-cl-14 ../lib/llvm-14/bin/clang-cl
entry l 0777 0 0 0 /usr/bin/clang-apply-replacements ../lib/llvm-14/bin/clang-apply-replacements
entry l 0777 0 0 0 /usr/bin/ppcx64-3.2.2 ../lib/x86_64-linux-gnu/fpc/3.2.2/ppcx64
entry l 0777 0 0 0 /usr/bin/llvm-profdata-14 ../lib/llvm-14/bin/llvm-profdata
entry l 0777 0 0 0 /usr/bin/gcov gcov-12
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-gnatclean x86_64-linux-gnu-gnatclean-12
entry l 0777 0 0 0 /usr/bin/llvm-opt-report-14 ../lib/llvm-14/bin/llvm-opt-report
entry l 0777 0 0 0 /usr/bin/split-file-14 ../lib/llvm-14/bin/split-file
entry f 0755 0 0 10395104 /usr/bin/gdb
entry f 0755 0 0 55608 /usr/bin/scriptlive
entry f 4755 0 0 68248 /usr/bin/passwd
entry l 0777 0 0 0 /usr/bin/qml1plugindump qtchooser
entry f 0755 0 0 31056 /usr/bin/skill
entry f 0755 0 0 72000 /usr/bin/resizepart
entry f 0755 0 0 52160 /usr/bin/ico
entry f 0755 0 0 117808 /usr/bin/expr
entry f 0755 0 0 12398 /usr/bin/heaptrack
entry l 0777 0 0 0 /usr/bin/ar x86_64-linux-gnu-ar
entry l 0777 0 0 0 /usr/bin/pg_basebackup ../share/postgresql-common/pg_wrapper
entry l 0777 0 0 0 /usr/bin/as x86_64-linux-gnu-as
entry f 0755 0 0 2081 /usr/bin/zforce
entry f 0755 0 0 30800 /usr/bin/jq
entry f 0755 0 0 10487 /usr/bin/savelog
entry f 0755 0 0 81104 /usr/bin/xgc
entry l 0777 0 0 0 /usr/bin/plex /etc/alternatives/plex
entry f 0755 0 0 186992 /usr/bin/systemd-analyze
entry f 0755 0 0 23176 /usr/bin/srec_info
entry f 0755 0 0 1984 /usr/bin/zcat
entry f 0755 0 0 26784 /usr/bin/xdg-user-dirs-update
entry l 0777 0 0 0 /usr/bin/verify-uselistorder ../lib/llvm-14/bin/verify-uselistorder
entry f 0755 0 0 1586096 /usr/bin/ctags-universal
entry f 0755 0 0 76704 /usr/bin/xmllint
entry f 0755 0 0 15375 /usr/bin/corelist
entry f 0755 0 0 8338 /usr/bin/pg_dropcluster
entry f 0755 0 0 19016 /usr/bin/prtstat
entry l 0777 0 0 0 /usr/bin/git-upload-archive git
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-lto-dump lto-dump-12
entry f 0755 0 0 1190960 /usr/bin/x86_64-linux-gnu-fpcres-3.2.2
entry l 0777 0 0 0 /usr/bin/fpcsubst /etc/alternatives/fpcsubst
entry l 0777 0 0 0 /usr/bin/llvm-mca ../lib/llvm-14/bin/llvm-mca
entry f 0755 0 0 1033616 /usr/bin/webidl2pas-3.2.2
entry l 0777 0 0 0 /usr/bin/f95 /etc/alternatives/f95
entry l 0777 0 0 0 /usr/bin/c++filt x86_64-linux-gnu-c++filt
entry l 0777 0 0 0 /usr/bin/qmlviewer qtchooser
entry f 0755 0 0 56304 /usr/bin/join
entry f 0755 0 0 14752 /usr/bin/fc-validate
entry f 0755 0 0 48632 /usr/bin/timeout
entry f 0755 0 0 35696 /usr/bin/tty
entry l 0777 0 0 0 /usr/bin/xzfgrep xzgrep
entry f 0755 0 0 13308 /usr/bin/py3compile
entry f 0755 0 0 94696 /usr/bin/zipcloak
entry l 0777 0 0 0 /usr/bin/cc /etc/alternatives/cc
entry l 0777 0 0 0 /usr/bin/ifpc /etc/alternatives/ifpc
entry f 0755 0 0 35136 /usr/bin/ngettext
entry f 0755 0 0 39224 /usr/bin/bzip2
entry f 0755 0 0 72264 /usr/bin/pinentry-curses
entry f 0755 0 0 14568 /usr/bin/bzip2recover
entry f 0755 0 0 565 /usr/bin/sensible-pager
entry l 0777 0 0 0 /usr/bin/montage /etc/alternatives/montage
entry f 0755 0 0 64184 /usr/bin/systemd-sysusers
entry f 0755 0 0 19411920 /usr/bin/shellcheck
entry f 0755 0 0 154304 /usr/bin/systemd-repart
entry l 0777 0 0 0 /usr/bin/composite /etc/alternatives/composite
entry f 0755 0 0 7268 /usr/bin/ocs
entry l 0777 0 0 0 /usr/bin/dropuser ../share/postgresql-common/pg_wrapper
entry f 4755 0 0 52880 /usr/bin/chsh
entry f 0755 0 0 518528 /usr/bin/x86_64-linux-gnu-fpc-3.2.2
entry l 0777 0 0 0 /usr/bin/hmaptool-14 ../lib/llvm-14/bin/hmaptool
entry f 0755 0 0 1252568 /usr/bin/pas2jni-3.2.2
entry l 0777 0 0 0 /usr/bin/qmleasing qtchooser
entry f 0755 0 0 151152 /usr/bin/mandb
entry l 0777 0 0 0 /usr/bin/clang-include-fixer-14 ../lib/llvm-14/bin/clang-include-fixer
entry f 0755 0 0 280800 /usr/bin/curl
entry f 0755 0 0 36320 /usr/bin/getent
entry f 0755 0 0 371264 /usr/bin/x86_64-linux-gnu-objdump
entry f 0755 0 0 22768 /usr/bin/gresource
entry l 0777 0 0 0 /usr/bin/conjure-im6 /etc/alternatives/conjure-im6
entry f 0755 0 0 24200 /usr/bin/lesskey
entry f 0755 0 0 63824 /usr/bin/dpkg-statoverride
entry f 4755 0 0 72000 /usr/bin/su
entry f 0755 0 0 23306 /usr/bin/pg_ctlcluster
entry f 0755 0 0 2651 /usr/bin/lsb_release
entry f 0755 0 0 35248 /usr/bin/pidwait
entry f 0755 0 0 8360 /usr/bin/cpan
entry l 0777 0 0 0 /usr/bin/gnatprep-12 x86_64-linux-gnu-gnatprep-12
entry f 0755 0 0 306888 /usr/bin/sqlite3
entry f 0755 0 0 27200 /usr/bin/gencnval
entry l 0777 0 0 0 /usr/bin/x86_64-linux-gnu-gnatmake x86_64-linux-gnu-gnatmake-12
entry l 0777 0 0 0 /usr/bin/llvm-split ../lib/llvm-14/bin/llvm-split
entry l 0777 0 0 0 /usr/bin/clang-format-diff clang-format-diff-14
entry f 0755 0 0 1301496 /usr/bin/x86_64-linux-gnu-cpp-12
entry f 0755 0 0 56400 /usr/bin/sdiff
entry f 0755 0 0 19168 /usr/bin/genbrk
entry l 0777 0 0 0 /usr/bin/lzgrep /etc/alternatives/lzgrep
entry f 0755 0 0 2190 /usr/bin/xzmore
entry l 0777 0 0 0 /usr/bin/run-clang-tidy-14 ../lib/llvm-14/bin/run-clang-tidy
entry l 0777 0 0 0 /usr/bin/llvm-PerfectShuffle ../lib/llvm-14/bin/llvm-PerfectShuffle
entry f 0755 0 0 48048 /usr/bin/comm
entry l 0777 0 0 0 /usr/bin/qdoc3 qtchooser
entry l 0777 0 0 0 /usr/bin/llvm-ar-14 ../lib/llvm-14/bin/llvm-ar
entry f 0755 0 0 26624 /usr/bin/rxqueue
entry l 0777 0 0 0 /usr/bin/rvim /etc/alternatives/rvim
entry l 0777 0 0 0 /usr/bin/etags /etc/alternatives/etags
entry l 0777 0 0 0 /usr/bin/scan-view scan-view-14
entry f 0755 0 0 224848 /usr/bin/find
entry f 0755 0 0 2645 /usr/bin/ptardiff
entry l 0777 0 0 0 /usr/bin/llvm-readobj-14 ../lib/llvm-14/bin/llvm-readobj
entry f 0755 0 0 45183 /usr/bin/perlbug
entry l 0777 0 0 0 /usr/bin/llvm-jitlink-executor-14 ../lib/llvm-14/bin/llvm-jitlink-executor
entry l 0777 0 0 0 /usr/bin/clang-repl-14 ../lib/llvm-14/bin/clang-repl
entry f 0755 0 0 18921 /usr/bin/dpkg-genbuildinfo
entry f 0755 0 0 23688 /usr/bin/transset
entry l 0777 0 0 0 /usr/bin/llvm-dwp ../lib/llvm-14/bin/llvm-dwp
entry f 0755 0 0 175440 /usr/bin/du
entry f 0755 0 0 131192 /usr/bin/appstreamcli
entry f 0755 0 0 199224 /usr/bin/x11perf
entry l 0777 0 0 0 /usr/bin/jmap /etc/alternatives/jmap
entry f 0755 0 0 39224 /usr/bin/wall
entry l 0777 0 0 0 /usr/bin/llvm-profgen-14 ../lib/llvm-14/bin/llvm-profgen
entry l 0777 0 0 0 /usr/bin/clang-doc-14 ../lib/llvm-14/bin/clang-doc
entry f 0755 0 0 310664 /usr/bin/ninja
entry l 0777 0 0 0 /usr/bin/llvm-dwarfdump-14 ../lib/llvm-14/bin/llvm-dwarfdump
entry f 0755 0 0 14584 /usr/sbin/pam_timestamp_check
entry f 0755 0 0 60136 /usr/sbin/zic
entry f 0755 0 0 101416 /usr/sbin/groupadd
entry f 0755 0 0 15032 /usr/sbin/gencmn
entry f 0755 0 0 35168 /usr/sbin/readprofile
entry f 0755 0 0 26944 /usr/sbin/killall5
entry f 0755 0 0 67720 /usr/sbin/arp
entry f 0755 0 0 3174 /usr/sbin/update-java-alternatives
entry l 0777 0 0 0 /usr/sbin/runlevel /bin/systemctl
entry f 0755 0 0 45432 /usr/sbin/rtacct
entry f 0755 0 0 67880 /usr/sbin/chgpasswd
entry f 0755 0 0 48112 /usr/sbin/chroot
entry f 0755 0 0 69112 /usr/sbin/agetty
entry f 0755 0 0 16347 /usr/sbin/blkdeactivate
entry f 0755 0 0 88512 /usr/sbin/hwclock
entry f 0755 0 0 39416 /usr/sbin/update-passwd
entry f 0755 0 0 74384 /usr/sbin/vipw
entry f 0755 0 0 16517 /usr/sbin/invoke-rc.d
entry f 0755 0 0 170984 /usr/sbin/dmsetup
entry f 0755 0 0 14648 /usr/sbin/pivot_root
entry f 0755 0 0 51512 /usr/sbin/swapon
entry f 0755 0 0 1411 /usr/sbin/locale-gen
entry f 0755 0 0 31040 /usr/sbin/sysctl
entry f 0755 0 0 147056 /usr/sbin/usermod
entry f 0755 0 0 117168 /usr/sbin/losetup
entry f 0755 0 0 3925 /usr/sbin/dpkg-preconfigure
entry f 0755 0 0 55760 /usr/sbin/e2image
entry f 0755 0 0 72000 /usr/sbin/runuser
entry f 0755 0 0 16727 /usr/sbin/deluser
entry l 0777 0 0 0 /usr/sbin/getty agetty
entry l 0777 0 0 0 /usr/sbin/halt /bin/systemctl
entry f 0755 0 0 9393 /usr/sbin/update-catalog
entry f 0755 0 0 70832 /usr/sbin/route
entry l 0777 0 0 0 /usr/sbin/mkfs.ext4 mke2fs
entry f 0755 0 0 63856 /usr/sbin/chpasswd
entry f 0755 0 0 64320 /usr/sbin/gennorm2
entry f 0755 0 0 4551 /usr/sbin/install-sgmlcatalog
entry f 0755 0 0 26936 /usr/sbin/e4crypt
entry l 0777 0 0 0 /usr/sbin/e2label tune2fs
entry f 0755 0 0 17284 /usr/sbin/update-xmlcatalog
entry f 0755 0 0 23592 /usr/sbin/icupkg
entry f 0755 0 0 67904 /usr/sbin/chmem
entry f 0755 0 0 159536 /usr/sbin/useradd
entry f 0755 0 0 22840 /usr/sbin/e2undo
entry f 0755 0 0 125272 /usr/sbin/fsck.minix
entry f 0755 0 0 80192 /usr/sbin/blockdev
entry f 0755 0 0 83976 /usr/sbin/ifconfig
entry l 0777 0 0 0 /usr/sbin/fsck.ext4 e2fsck
entry f 0755 0 0 27376 /usr/sbin/gensprep
entry f 0755 0 0 18744 /usr/sbin/swaplabel
entry f 0755 0 0 54568 /usr/sbin/capsh
entry f 0755 0 0 7294 /usr/sbin/e2scrub
entry f 0755 0 0 14824 /usr/sbin/plipconfig
entry f 0755 0 0 106984 /usr/sbin/arpd
entry f 0755 0 0 17401 /usr/sbin/dpkg-fsys-usrunmess
entry l 0777 0 0 0 /usr/sbin/addgroup adduser
entry f 0755 0 0 15032 /usr/sbin/genccode
entry f 0755 0 0 35072 /usr/sbin/badblocks
entry f 0755 0 0 30960 /usr/sbin/e4defrag
entry l 0777 0 0 0 /usr/sbin/ip /bin/ip
entry l 0777 0 0 0 /usr/sbin/e2mmpstatus dumpe2fs
entry f 0755 0 0 59656 /usr/sbin/pwck
entry f 0755 0 0 88936 /usr/sbin/groupdel
entry f 0755 0 0 19008 /usr/sbin/ipmaddr
entry f 0755 0 0 141904 /usr/sbin/mke2fs
entry f 0755 0 0 44464 /usr/sbin/start-stop-daemon
entry l 0777 0 0 0 /usr/sbin/mkfs.ext2 mke2fs
entry f 0755 0 0 125280 /usr/sbin/blkid
entry f 0755 0 0 35136 /usr/sbin/blkdiscard
entry f 0755 0 0 67888 /usr/sbin/grpck
entry f 0755 0 0 4358 /usr/sbin/pg_updatedicts
entry f 0755 0 0 239440 /usr/sbin/debugfs
entry l 0777 0 0 0 /usr/sbin/shutdown /bin/systemctl
entry f 0755 0 0 1053 /usr/sbin/add-shell
entry f 0755 0 0 117168 /usr/sbin/zramctl
entry f 0755 0 0 67920 /usr/sbin/groupmems
entry f 0755 0 0 14576 /usr/sbin/getpcaps
entry f 0755 0 0 119304 /usr/sbin/genl
entry f 0755 0 0 1773 /usr/sbin/validlocale
entry f 0755 0 0 43384 /usr/sbin/fsck.cramfs
entry f 0755 0 0 596 /usr/sbin/update-icon-caches
entry l 0777 0 0 0 /usr/sbin/delgroup deluser
entry f 0755 0 0 61880 /usr/sbin/cppw
entry f 0755 0 0 14576 /usr/sbin/fstab-decode
entry f 0755 0 0 105392 /usr/sbin/newusers
entry f 0755 0 0 15000 /usr/sbin/nameif
entry f 0755 0 0 117264 /usr/sbin/tune2fs
entry f 0755 0 0 21288 /usr/sbin/pam-auth-update
entry f 0755 0 0 31040 /usr/sbin/dumpe2fs
entry l 0777 0 0 0 /usr/sbin/init /lib/systemd/systemd
entry f 0755 0 0 156264 /usr/sbin/tipc
entry f 0755 0 0 112968 /usr/sbin/mkfs.minix
entry l 0777 0 0 0 /usr/sbin/telinit /bin/systemctl
entry f 0755 0 0 39224 /usr/sbin/ctrlaltdel
entry f 0755 0 0 59536 /usr/sbin/grpunconv
entry f 0755 0 0 27192 /usr/sbin/iptunnel
entry f 0755 0 0 42184 /usr/sbin/slattach
entry f 0755 0 0 117056 /usr/sbin/mkswap
entry f 0755 0 0 60432 /usr/sbin/rmt-tar
entry f 0755 0 0 14648 /usr/sbin/e2freefrag
entry f 0755 0 0 47424 /usr/sbin/rtcwake
entry l 0777 0 0 0 /usr/sbin/mount.fuse mount.fuse3
entry l 0777 0 0 0 /usr/sbin/rmt /etc/alternatives/rmt
entry f 0755 0 0 17742 /usr/sbin/update-rc.d
entry f 0755 0 0 14424 /usr/sbin/logsave
entry f 0755 0 0 63800 /usr/sbin/resize2fs
entry f 0755 0 0 6812 /usr/sbin/make-ssl-cert
entry f 0755 0 0 43256 /usr/sbin/mkfs.cramfs
entry f 0755 0 0 55472 /usr/sbin/pwunconv
entry l 0777 0 0 0 /usr/sbin/poweroff /bin/systemctl
entry f 0755 0 0 2659 /usr/sbin/installkernel
entry f 0755 0 0 3063 /usr/sbin/update-locale
entry l 0777 0 0 0 /usr/sbin/fsck.ext3 e2fsck
entry f 0755 0 0 38024 /usr/sbin/rarp
entry f 0755 0 0 22840 /usr/sbin/swapoff
entry f 0755 0 0 14648 /usr/sbin/fsfreeze
entry f 0755 0 0 22928 /usr/sbin/escapesrc
entry f 0755 0 0 936 /usr/sbin/tarcat
entry f 0755 0 0 255 /usr/sbin/policy-rc.d
entry f 0755 0 0 55616 /usr/sbin/sulogin
entry f 0755 0 0 9099 /usr/sbin/service
entry f 0755 0 0 467 /usr/sbin/pam_namespace_helper
entry f 0755 0 0 31040 /usr/sbin/isosize
entry f 0755 0 0 119464 /usr/sbin/vdpa
entry f 0755 0 0 3075 /usr/sbin/addgnupghome
entry f 0755 0 0 47416 /usr/sbin/chcpu
entry l 0777 0 0 0 /usr/sbin/vigr vipw
entry f 0755 0 0 14576 /usr/sbin/setcap
entry l 0777 0 0 0 /usr/sbin/cpgr cppw
entry f 0755 0 0 39160 /usr/sbin/unix_update
entry f 0755 0 0 18744 /usr/sbin/switch_root
entry f 0755 0 0 14576 /usr/sbin/mklost+found
entry l 0777 0 0 0 /usr/sbin/fsck.ext2 e2fsck
entry f 0755 0 0 14568 /usr/sbin/nologin
entry f 0755 0 0 5394 /usr/sbin/e2scrub_all
entry f 0755 0 0 22800 /usr/sbin/mkhomedir_helper
entry f 0755 0 0 148072 /usr/sbin/dcb
entry f 0755 0 0 35136 /usr/sbin/ldattach
entry f 0755 0 0 2217 /usr/sbin/applygnupgdefaults
entry f 0755 0 0 115144 /usr/sbin/rtmon
entry l 0777 0 0 0 /usr/sbin/dmstats dmsetup
entry f 0755 0 0 101384 /usr/sbin/groupmod
entry f 0755 0 0 1111 /usr/sbin/remove-shell
entry f 0755 0 0 31584 /usr/sbin/iconvconfig
entry f 0755 0 0 76096 /usr/sbin/fstrim
entry f 0755 0 0 59536 /usr/sbin/grpconv
entry f 0755 0 0 47424 /usr/sbin/wipefs
entry f 0755 0 0 982880 /usr/sbin/ldconfig
entry f 0755 0 0 14576 /usr/sbin/getcap
entry f 0755 0 0 14648 /usr/sbin/mkfs
entry f 0755 0 0 113608 /usr/sbin/userdel
entry f 0755 0 0 587776 /usr/sbin/tc
entry f 0755 0 0 4485 /usr/sbin/dpkg-reconfigure
entry f 0755 0 0 156200 /usr/sbin/bridge
entry f 0755 0 0 18696 /usr/sbin/filefrag
entry f 0755 0 0 2890 /usr/sbin/pam_getenv
entry f 0755 0 0 48382 /usr/sbin/adduser
entry f 0755 0 0 2273 /usr/sbin/shadowconfig
entry f 0755 0 0 356624 /usr/sbin/e2fsck
entry f 0755 0 0 14584 /usr/sbin/faillock
entry f 0755 0 0 226280 /usr/sbin/devlink
entry f 0755 0 0 5418 /usr/sbin/update-ca-certificates
entry l 0777 0 0 0 /usr/sbin/reboot /bin/systemctl
entry f 0755 0 0 18664 /usr/sbin/mount.fuse3
entry f 0755 0 0 14648 /usr/sbin/findfs
entry f 0755 0 0 80192 /usr/sbin/blkzone
entry f 0755 0 0 27728 /usr/sbin/mii-tool
entry f 0755 0 0 55664 /usr/sbin/fsck
entry f 0755 0 0 18680 /usr/sbin/pwhistory_helper
entry f 0755 0 0 14808 /usr/sbin/accessdb
entry f 0755 0 0 3984 /usr/sbin/update-shells
entry f 2755 0 42 39160 /usr/sbin/unix_chkpwd
entry f 0755 0 0 55432 /usr/sbin/pwconv
entry f 0755 0 0 35136 /usr/sbin/mkfs.bfs
entry l 0777 0 0 0 /usr/sbin/mkfs.ext3 mke2fs
entry d 0755 0 0 0 /opt/skills
entry d 0755 0 0 0 /opt/wheels
entry d 0755 0 0 0 /opt/tf-plugins
entry f 0755 0 0 0 /usr/bin/updater
entry f 0755 0 0 0 /home/mainApp
entry d 0755 0 0 0 /usr/lib
entry d 0755 0 0 0 /usr/lib/modules
entry d 0755 0 0 0 /usr/lib/modules/4.19.0-instrument
