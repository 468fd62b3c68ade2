module example.com/shop

go 1.21
