xpacl_bench(vane_bench platform)
