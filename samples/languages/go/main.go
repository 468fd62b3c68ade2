package main

import (
	"fmt"

	"example.com/shop/internal/cart"
	pay "example.com/shop/payment"
	_ "example.com/shop/internal/missing"
)

func main() {
	fmt.Println(cart.Total(), pay.Charge())
}
