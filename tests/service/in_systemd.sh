#!/bin/bash
# Boots a systemd as the first process of a machine that exists for as long as
# this runs - own processes, mounts, network, host name and control group, and
# a copy of the file system that takes what is written - and runs the test of
# the service's life in it.  Nothing outside of a temporary folder is changed.
#
# usage: in_systemd.sh TEST-PROGRAM BUILD-FOLDER     77: cannot be done here
set -u

skip() { echo "skipped: $1"; exit 77; }

outside() {
  [ "$(id -u)" = 0 ] || skip "only root can make such a machine"
  [ -x /lib/systemd/systemd ] || skip "systemd is not installed"
  unshare -m -p -f -n true 2>/dev/null || skip "this system lets nobody make name spaces"
  local groups
  groups=$(findmnt -n -t cgroup2 -o TARGET | head -1)
  [ -n "$groups" ] || skip "there are no control groups of version 2"
  folder=$(mktemp -d)
  group=$groups/listhaven-test-${folder##*.}
  mkdir "$folder/share" "$folder/machine"
  mkdir "$group" 2>/dev/null || { rm -rf "$folder"; skip "no control group can be made"; }
  timeout -k 5 150 unshare -m -p -f -u -i -n --kill-child /bin/bash "$0" inside "$1" "$2" "$folder" "$group" \
    </dev/null >"$folder/share/boot" 2>&1 &
  local machine=$!
  for _ in $(seq 700); do
    [ -s "$folder/share/status" ] && break
    kill -0 $machine 2>/dev/null || break
    sleep 0.2
  done
  kill $machine 2>/dev/null
  wait $machine 2>/dev/null
  cat "$folder/share/output" "$folder/share/boot" 2>/dev/null
  local status
  status=$(cat "$folder/share/status" 2>/dev/null || echo 1)
  [ -e "$folder/share/isUp" ] || status=77
  for _ in $(seq 50); do  # until the kernel has buried the last process
    find "$group" -depth -type d -exec rmdir {} \; 2>/dev/null
    [ -d "$group" ] || break
    sleep 0.1
  done
  rm -rf "$folder"
  [ "$status" != 77 ] || skip "the machine does not come up, see above"
  exit "$status"
}

inside() {
  set -e
  local test=$1 build=$2 folder=$3 group=$4 root=$3/machine/root device
  mount --make-rprivate /
  echo 0 > "$group/cgroup.procs"
  mount -t tmpfs tmpfs "$folder/machine"
  mkdir "$folder/machine/upper" "$folder/machine/work" "$root"
  mount -t overlay overlay -o "lowerdir=/,upperdir=$folder/machine/upper,workdir=$folder/machine/work" "$root"
  mount --bind "$folder/share" "$root/mnt"
  mount -t proc proc "$root/proc"
  mount --bind "$root/proc/sys" "$root/proc/sys"
  mount -o remount,bind,ro "$root/proc/sys"
  mount -t sysfs -o ro sysfs "$root/sys"
  for device in run tmp dev; do mount -t tmpfs -o mode=755 tmpfs "$root/$device"; done
  chmod 1777 "$root/tmp"
  mkdir -p "$root$build"  # which may lie in /tmp
  mount --bind -o ro "$build" "$root$build"
  for device in null:3 zero:5 full:7 random:8 urandom:9; do
    mknod -m 666 "$root/dev/${device%:*}" c 1 "${device#*:}"
  done
  mkdir "$root/dev/shm" "$root/dev/pts"
  mount -t devpts -o newinstance,ptmxmode=666 devpts "$root/dev/pts"
  ln -s pts/ptmx "$root/dev/ptmx"
  only_the_test "$root" "$test"
  mkdir -p "$root/before"
  exec unshare -C /bin/bash -c '
    mount -t cgroup2 cgroup2 "$0/sys/fs/cgroup" && cd "$0" && pivot_root . before && cd / && umount -l /before &&
    container=lxc exec setpriv --bounding-set=-sys_time,-sys_boot,-sys_module \
      /lib/systemd/systemd --system --unit=only-the-test.target' "$root"
}

# No other unit of the machine outside starts.
only_the_test() {
  local units=$1/etc/systemd/system unit
  rm -rf "$units"/*.wants "$units"/*.requires "$units/lhvserver.service" "$1/var/lib/Vantorel"
  for unit in "$1"/lib/systemd/system/*.wants/* "$1"/lib/systemd/system/systemd-journald*.s*; do
    case $unit in *.target) ;; *) ln -sf /dev/null "$units/${unit##*/}" ;; esac
  done
  : > "$1/etc/fstab"
  printf '[Unit]\nDefaultDependencies=no\nWants=only-the-test.service\n' > "$units/only-the-test.target"
  cat > "$units/only-the-test.service" <<END
[Unit]
DefaultDependencies=no
[Service]
Type=oneshot
Environment=LISTHAVEN_TEST_SERVICE=1
ExecStart=/bin/sh -c 'touch /mnt/isUp; "$2" --gtest_filter=Service.From* >/mnt/output 2>&1 && grep -q "  OK ]" /mnt/output; echo \$\$? >/mnt/status'
END
}

case $1 in
  inside) shift; inside "$@" ;;
  *) outside "$@" ;;
esac
