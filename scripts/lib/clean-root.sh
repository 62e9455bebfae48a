# A Debian root with nothing in it that Debian itself does not need, to try things as on a fresh machine. To be sourced
# by root, from the root of the tree. What is downloaded once is kept in build/clean-root.

clean_root=$PWD/build/clean-root

# make_clean_root: a fresh one in $clean_root/root
make_clean_root() {
  command -v debootstrap >/dev/null || { echo "apt-get install debootstrap" >&2; return 1; }
  mkdir -p "$clean_root/archives/partial"
  if [ ! -f "$clean_root/base.tar" ]; then
    local making=$clean_root/making
    rm -rf "$making"
    debootstrap --variant=minbase --include=ca-certificates bookworm "$making" >"$clean_root/debootstrap.log"
    tar -C "$making" -cf "$clean_root/base.tar.new" .
    mv "$clean_root/base.tar.new" "$clean_root/base.tar"
    rm -rf "$making"
  fi
  rm -rf "$clean_root/root"
  mkdir -p "$clean_root/root"
  tar -C "$clean_root/root" -xf "$clean_root/base.tar"
  cp /etc/resolv.conf "$clean_root/root/etc/"
  echo "127.0.0.1 localhost $(hostname)" >"$clean_root/root/etc/hosts"
  printf '#!/bin/sh\nexit 101\n' >"$clean_root/root/usr/sbin/policy-rc.d" # no service starts here
  chmod +x "$clean_root/root/usr/sbin/policy-rc.d"
}

# in_clean_root COMMAND...: in namespaces of its own, so nothing stays mounted and nothing stays running. It is the root of
# the file system there, not a chroot: in a chroot only root may make namespaces.
in_clean_root() {
  unshare --mount --pid --fork --kill-child sh -c '
    root=$1; archives=$2; shift 2
    mount --bind "$root" "$root" && mount -t proc proc "$root/proc" && mount --rbind /dev "$root/dev" && mount -t sysfs sysfs "$root/sys" &&
      mount --bind "$archives" "$root/var/cache/apt/archives" && cd "$root" && pivot_root . . && umount --lazy . && cd / &&
      exec env -i HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
        PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin "$@"
  ' sh "$clean_root/root" "$clean_root/archives" "$@"
}

# in_booted_root COMMAND...: systemd boots in the root, in namespaces of its own with nothing but a loopback interface, runs
# the command as a service and ends with its status. The package systemd-sysv has to be installed in the root.
in_booted_root() {
  command -v systemd-nspawn >/dev/null || { echo "apt-get install systemd-container" >&2; return 1; }
  local root=$clean_root/root status=0 without_host_systemd=()
  [ -d /run/systemd/system ] || without_host_systemd=(--register=no --keep-unit)
  rm -f "$root/usr/sbin/policy-rc.d" # services start and stop here
  printf '#!/bin/bash\nexec >/booted-output 2>&1 </dev/null %s\n' "${*@Q}" >"$root/booted-command"
  chmod +x "$root/booted-command"
  systemd-nspawn --directory "$root" "${without_host_systemd[@]}" --private-network \
    --bind "$clean_root/archives:/var/cache/apt/archives" --boot systemd.run=/booted-command \
    >"$clean_root/boot.log" 2>&1 </dev/null || status=$?
  cat "$root/booted-output" || cat "$clean_root/boot.log"
  return "$status"
}
